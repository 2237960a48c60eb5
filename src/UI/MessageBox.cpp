#include "MessageBox.h"

#include <QMessageBox>
#include <QPushButton>

#include <deque>

namespace {
std::deque<int> &presetAnswers()
{
    static std::deque<int> answers;
    return answers;
}

std::optional<int> &defaultAnswer()
{
    static std::optional<int> answer;
    return answer;
}

std::vector<MessageBox::Alert> &shownAlerts()
{
    static std::vector<MessageBox::Alert> alerts;
    return alerts;
}

std::function<void(const MessageBox::Alert &)> &showHook()
{
    static std::function<void(const MessageBox::Alert &)> hook;
    return hook;
}

QMessageBox::Icon iconFor(MessageBox::Style style)
{
    switch (style) {
    case MessageBox::Style::Warning:
        return QMessageBox::Warning;
    case MessageBox::Style::Critical:
        return QMessageBox::Critical;
    case MessageBox::Style::Informational:
        break;
    }
    return QMessageBox::Information;
}
} // namespace

int MessageBox::show(QWidget *parent, const Alert &alert)
{
    Alert shownAlert = alert;
    if (shownAlert.buttons.isEmpty())
        shownAlert.buttons << QStringLiteral("确定");
    shownAlerts().push_back(shownAlert);
    if (showHook())
        showHook()(shownAlert);
    const int buttonCount = int(shownAlert.buttons.size());
    const auto clamp = [buttonCount](int answer) { return answer < 0 || answer >= buttonCount ? 0 : answer; };

    if (!presetAnswers().empty()) {
        const int answer = presetAnswers().front();
        presetAnswers().pop_front();
        return clamp(answer);
    }
    if (defaultAnswer())
        return clamp(*defaultAnswer());

    QMessageBox box(iconFor(shownAlert.style), shownAlert.title, shownAlert.messageText, QMessageBox::NoButton, parent);
    box.setInformativeText(shownAlert.informativeText);
    std::vector<QPushButton *> buttons;
    for (const QString &title : std::as_const(shownAlert.buttons))
        buttons.push_back(box.addButton(title, QMessageBox::AcceptRole));
    box.setDefaultButton(buttons.front());
    // Escape or closing the box is the cautious answer: the first button ("确定"), never an
    // action such as opening the settings.
    box.setEscapeButton(buttons.front());
    box.exec();
    for (int i = 0; i < buttonCount; ++i) {
        if (box.clickedButton() == buttons[size_t(i)])
            return i;
    }
    return 0;
}

void MessageBox::information(QWidget *parent, const QString &title, const QString &messageText,
                             const QString &informativeText)
{
    show(parent, {Style::Informational, title, messageText, informativeText, {}});
}

void MessageBox::warning(QWidget *parent, const QString &title, const QString &messageText,
                         const QString &informativeText)
{
    show(parent, {Style::Warning, title, messageText, informativeText, {}});
}

void MessageBox::setNextAnswers(std::vector<int> answers)
{
    presetAnswers().assign(answers.begin(), answers.end());
}

void MessageBox::setDefaultAnswer(std::optional<int> answer)
{
    defaultAnswer() = answer;
}

const std::vector<MessageBox::Alert> &MessageBox::shown()
{
    return shownAlerts();
}

void MessageBox::setShowHook(std::function<void(const Alert &)> hook)
{
    showHook() = std::move(hook);
}

void MessageBox::clearShown()
{
    shownAlerts().clear();
}
