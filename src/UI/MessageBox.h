#pragma once

#include <QString>
#include <QStringList>

#include <functional>
#include <optional>
#include <vector>

class QWidget;

// Every modal alert of the windows goes through here, so that tests can answer a box
// before it opens (setNextAnswers) and read what was shown (shown()), without a person at
// the keyboard and without a box blocking the test's event loop.
//
// Buttons are given by their titles ("确定", "设置", "是", "否"...); the answer is the index of
// the pressed button, 0 being the first (the default button, bound to Return).
class MessageBox
{
public:
    enum class Style { Informational, Warning, Critical };

    struct Alert
    {
        Style style = Style::Informational;
        QString title;           // window title
        QString messageText;     // the bold first line
        QString informativeText; // the text below it
        QStringList buttons;     // titles, first is the default
    };

    // Shows the alert modally and returns the index of the pressed button. An empty button
    // list shows one "确定". Closing the box with Escape or the window's close button answers
    // the first button.
    static int show(QWidget *parent, const Alert &alert);

    // The common case: one "确定" button.
    static void information(QWidget *parent, const QString &title, const QString &messageText,
                            const QString &informativeText = {});
    static void warning(QWidget *parent, const QString &title, const QString &messageText,
                        const QString &informativeText = {});

    // --- for tests ---
    // The next alerts are answered with these indexes, in order, without opening a box.
    static void setNextAnswers(std::vector<int> answers);
    // While set, every alert without a preset answer is answered at once with this index.
    static void setDefaultAnswer(std::optional<int> answer);
    // Every alert shown (or answered) since the last clearShown().
    static const std::vector<Alert> &shown();
    // Called with each alert as it is shown, before it is answered: a test looks at the state
    // of the program at that moment. Empty to remove.
    static void setShowHook(std::function<void(const Alert &)> hook);
    static void clearShown();
};
