#pragma once

#include <QDialog>

#include <memory>

class CheckUpdatePresenter;
class QLabel;
class QProgressBar;
class QStackedWidget;
class QPushButton;

// The update dialog: a coloured header, one line of text and three pages (checking, the
// download's progress, a Yes/No question). Everything it shows comes from the presenter; the
// dialog is created once and reused, and every opening starts a new check.
class checkUpdateViewController : public QDialog
{
    Q_OBJECT
public:
    explicit checkUpdateViewController(std::unique_ptr<CheckUpdatePresenter> presenter, QWidget *parent = nullptr);
    explicit checkUpdateViewController(QWidget *parent = nullptr);
    ~checkUpdateViewController() override;

    CheckUpdatePresenter &presenter() const { return *_presenter; }
    QLabel *label() const { return _label; }
    QStackedWidget *tabview() const { return _tabview; }
    QProgressBar *downloadProgress() const { return _downloadProgress; }
    QPushButton *yesButton() const { return _yesBtn; }
    QPushButton *noButton() const { return _noBtn; }

protected:
    void showEvent(QShowEvent *event) override;

private:
    void refresh();

    std::unique_ptr<CheckUpdatePresenter> _presenter;
    QWidget *_topView = nullptr;
    QLabel *_label = nullptr;
    QStackedWidget *_tabview = nullptr;
    QProgressBar *_checkProgress = nullptr;
    QProgressBar *_downloadProgress = nullptr;
    QPushButton *_yesBtn = nullptr;
    QPushButton *_noBtn = nullptr;
};
