#include "areaConfViewController.h"

#include "MessageBox.h"

#include "Conf/Conf.h"
#include "Util/Log.h"

#include <QButtonGroup>
#include <QComboBox>
#include <QFormLayout>
#include <QFrame>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QSignalBlocker>
#include <QVBoxLayout>

areaConfViewController::areaConfViewController(QWidget *parent)
    : QWidget(parent)
{
    setObjectName(QStringLiteral("areaConfView"));
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(24, 28, 24, 24);
    layout->setSpacing(14);

    auto *title = new QLabel(QStringLiteral("选择所在地区"), this);
    QFont titleFont = title->font();
    titleFont.setPointSizeF(titleFont.pointSizeF() * 1.4);
    titleFont.setBold(true);
    title->setFont(titleFont);
    title->setAlignment(Qt::AlignCenter);
    layout->addWidget(title);

    auto *form = new QFormLayout;
    form->setLabelAlignment(Qt::AlignRight | Qt::AlignVCenter);
    form->setFieldGrowthPolicy(QFormLayout::AllNonFixedFieldsGrow);
    const QStringList captions = {QStringLiteral("省份"), QStringLiteral("城市"), QStringLiteral("学校"),
                                  QStringLiteral("学院")};
    const QStringList names = {QStringLiteral("provBtn"), QStringLiteral("cityBtn"), QStringLiteral("schoolBtn"),
                               QStringLiteral("collageBtn")};
    std::array<QComboBox **, areaSelection::LevelCount> lists = {&provBtn, &cityBtn, &schoolBtn, &collageBtn};
    for (int level = 0; level < areaSelection::LevelCount; ++level) {
        auto *box = new QComboBox(this);
        box->setObjectName(names[level]);
        box->setPlaceholderText(QStringLiteral("请选择"));
        box->setFocusPolicy(Qt::StrongFocus);
        box->setMinimumContentsLength(8);
        box->setSizeAdjustPolicy(QComboBox::AdjustToMinimumContentsLengthWithIcon);
        form->addRow(captions[level], box);
        *lists[size_t(level)] = box;
        connect(box, &QComboBox::currentIndexChanged, this, [this, level](int index) { changeSelect(level, index); });
    }
    layout->addLayout(form);

    // The operators of a college, shown only for a college that has any. A college with one or
    // two operators shows only that many buttons, so that no button stands for nothing; a
    // college with more than three offers its first three.
    customBox = new QFrame(this);
    customBox->setObjectName(QStringLiteral("customBox"));
    auto *operatorLayout = new QHBoxLayout(customBox);
    operatorLayout->setContentsMargins(0, 0, 0, 0);
    operatorLayout->setSpacing(8);
    _operators = new QButtonGroup(this);
    _operators->setExclusive(true);
    for (int i = 0; i < areaSelection::MaxOperators; ++i) {
        auto *button = new QPushButton(customBox);
        button->setObjectName(QStringLiteral("operatorBtn_%1").arg(i));
        button->setCheckable(true);
        // White titles on the operator buttons; the checked one is the darker.
        button->setStyleSheet(
            QStringLiteral("QPushButton { color: white; background-color: #5b8fd1; border: none; border-radius: 4px;"
                           " padding: 6px 4px; }"
                           "QPushButton:checked { background-color: #1d4f91; }"));
        operatorLayout->addWidget(button);
        _operators->addButton(button, i);
        operatorBtn[size_t(i)] = button;
    }
    customBox->hide();
    layout->addWidget(customBox);
    layout->addStretch(1);

    commitBtn = new QPushButton(QStringLiteral("确定"), this);
    commitBtn->setObjectName(QStringLiteral("commitBtn"));
    commitBtn->setDefault(true);
    commitBtn->setMinimumHeight(34);
    connect(commitBtn, &QPushButton::clicked, this, &areaConfViewController::onCommit);
    layout->addWidget(commitBtn);

    setUpView(getJSONData());
}

areaModel areaConfViewController::getJSONData()
{
    return areaModel::fromFile(Conf::areaTreePath());
}

void areaConfViewController::setUpView(areaModel tree)
{
    _selection.resetTree(std::move(tree));
    resetItems(areaSelection::Province);
}

QComboBox *areaConfViewController::list(int level) const
{
    const std::array<QComboBox *, areaSelection::LevelCount> lists = {provBtn, cityBtn, schoolBtn, collageBtn};
    return level >= 0 && level < areaSelection::LevelCount ? lists[size_t(level)] : nullptr;
}

// Refills every list from `fromLevel` down from the selection, with nothing selected in them,
// and hides the operators.
void areaConfViewController::resetItems(int fromLevel)
{
    customBox->hide();
    for (int level = fromLevel; level < areaSelection::LevelCount; ++level) {
        QComboBox *box = list(level);
        const QSignalBlocker blocker(box);
        box->clear();
        box->addItems(_selection.namesForList(level));
        box->setCurrentIndex(-1);
        box->setEnabled(box->count() > 0);
    }
}

void areaConfViewController::changeSelect(int level, int index)
{
    _selection.select(level, index);
    resetItems(level + 1);
    if (level == areaSelection::College)
        showCostomBox();
}

void areaConfViewController::showCostomBox()
{
    // A new college starts with no operator chosen.
    _operators->setExclusive(false);
    for (QPushButton *button : operatorBtn)
        button->setChecked(false);
    _operators->setExclusive(true);

    const QStringList names = _selection.operatorNames();
    for (int i = 0; i < areaSelection::MaxOperators; ++i) {
        QPushButton *button = operatorBtn[size_t(i)];
        button->setVisible(i < names.size());
        button->setText(i < names.size() ? names[i] : QString());
    }
    customBox->setVisible(!names.isEmpty());
}

void areaConfViewController::onCommit()
{
    const int checked = _operators->checkedId();
    const areaSelection::CommitResult result =
        _selection.commit(checked >= 0 ? std::optional<int>(checked) : std::nullopt);
    if (!result.ok) {
        setAlert(QStringLiteral("确定"), QStringLiteral("提示"), result.alertText);
        return;
    }
    areaSelection::upLoad(result.areaCode);
    Q_EMIT committed(result.areaCode);
}

void areaConfViewController::setAlert(const QString &buttonTitle, const QString &messageText,
                                      const QString &informativeText)
{
    MessageBox::show(this,
                     {MessageBox::Style::Informational, messageText, messageText, informativeText, {buttonTitle}});
}
