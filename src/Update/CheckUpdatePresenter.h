#pragma once

#include <QObject>
#include <QString>

#include <functional>
#include <memory>
#include <optional>

class Updater;
class UpdateDownload;

// What the update dialog shows and does, without widgets: the dialog is a view that draws
// label(), page(), the progress and forwards its buttons here. One update walks through the
// states below; updateUserinterfaceByUpdateStateType() is the only way they change.
//
// The view: a header strip in kHeader* colours, a word-wrapped label, three pages (0: an
// indeterminate indicator, always animating; 1: a 0-100 bar; 2: Yes and No). On every showing
// call viewDidAppear(); on changed() show label() and page(); on progressChanged() set the
// bar; Yes/No call yes()/no(); closeRequested() closes the window (keep the presenter). Before
// opening, the menu command shows notConnectedMessage() in an alert instead when it has one.
class CheckUpdatePresenter : public QObject
{
    Q_OBJECT
public:
    enum UpdateStateType {
        Checking = 0,    // "客户端正在检查更新", page unchanged, starts the check
        Downloading = 1, // "客户端正在下载更新", page 1, starts the download
        Downloaded = 2,  // "下载完成，是否退出并替换程序", page 2, Yes installs
        UpdateFound = 3, // "检查到更新，是否下载", page 2, Yes downloads
        Failed = 4,      // the message given, page 0
    };
    enum Page { CheckingPage = 0, DownloadingPage = 1, QuestionPage = 2 };

    // What the presenter needs from outside; every member has a working default.
    struct Environment
    {
        // The updater for one check (default: the remembered account, the current area).
        std::function<std::shared_ptr<Updater>()> makeUpdater;
        // Runs `action` on the main thread after `ms` milliseconds (default: a Qt timer).
        std::function<void(int ms, std::function<void()> action)> singleShot;
        // Ends the application (default: QCoreApplication::quit).
        std::function<void()> quit;
    };

    explicit CheckUpdatePresenter(Environment environment = {}, QObject *parent = nullptr);
    ~CheckUpdatePresenter() override;

    // The header strip's colour.
    static constexpr int kHeaderRed = 40, kHeaderGreen = 138, kHeaderBlue = 221;

    QString label() const { return _label; }
    int page() const { return _page; }
    // The determinate bar, 0 to 100.
    float downloadProgress() const { return _progress; }
    QString downloadUrl() const { return _downloadUrl; }
    int state() const { return _state; }

    // "请连接后再尝试更新" while not connected (the stored "isconnected" is false): the dialog
    // is not opened then. nullopt when an update may be checked.
    static std::optional<QString> notConnectedMessage();

    // The view appeared (every opening): a new check.
    void viewDidAppear();
    void yes();
    void no();

    // Moves to a state from any thread; the change happens on the main thread, later. Numbers
    // outside the table do nothing.
    void updateUserinterfaceByUpdateStateType(int state, const std::optional<QString> &message = std::nullopt);

Q_SIGNALS:
    // label(), page() or state() changed.
    void changed();
    void progressChanged(float percent);
    // No was pressed: the view closes (the presenter stays for the next opening).
    void closeRequested();

private:
    void apply(int state, const std::optional<QString> &message, quint64 generation);
    void doCheck();
    void doDownload();
    void onDownloaded(const QString &location);

    Environment _env;
    QString _label;
    int _page = CheckingPage;
    int _state = -1;
    float _progress = 0;
    QString _downloadUrl;
    std::shared_ptr<Updater> _updateClass;
    std::unique_ptr<UpdateDownload> _download;
    // Bumped by every new check and by No, so that a late answer of an abandoned check or
    // download cannot move the dialog.
    quint64 _generation = 0;
};
