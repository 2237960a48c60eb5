#pragma once

#include "Conf/areaSelection.h"

#include <QWidget>

#include <array>

class QButtonGroup;
class QComboBox;
class QFrame;
class QPushButton;

// Area selection: four dependent lists (province, city, school, college) fed by the shipped
// area tree, the college's network operators as exclusive buttons, and a commit button. A
// successful commit stores the area and announces it with committed(); the window that holds
// this view then shows the log-in view. The decisions themselves live in areaSelection.
class areaConfViewController : public QWidget
{
    Q_OBJECT
public:
    // Reads the shipped area tree; an unusable file leaves every list empty.
    explicit areaConfViewController(QWidget *parent = nullptr);

    // Starts over on another tree (the shipped one is read by the constructor).
    void setUpView(areaModel tree);
    // The area code of the current choice, without the operator.
    QString getAreaCode() const { return _selection.getAreaCode(); }
    const areaSelection &selection() const { return _selection; }

    QComboBox *provBtn = nullptr;
    QComboBox *cityBtn = nullptr;
    QComboBox *schoolBtn = nullptr;
    QComboBox *collageBtn = nullptr;
    QFrame *customBox = nullptr;
    std::array<QPushButton *, areaSelection::MaxOperators> operatorBtn{};
    QPushButton *commitBtn = nullptr;

Q_SIGNALS:
    // The stored area code, after a successful commit.
    void committed(const QString &areaCode);

public Q_SLOTS:
    void onCommit();

private:
    static areaModel getJSONData();
    void changeSelect(int level, int index);
    void resetItems(int fromLevel);
    void showCostomBox();
    void setAlert(const QString &buttonTitle, const QString &messageText, const QString &informativeText);
    QComboBox *list(int level) const;

    areaSelection _selection;
    QButtonGroup *_operators = nullptr;
};
