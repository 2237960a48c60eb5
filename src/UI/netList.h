#pragma once

#include "NetworkSettings.h"

#include "Util/DVError.h"

#include <QDialog>
#include <QVariantMap>

#include <vector>

class QCheckBox;
class QPushButton;
class QTableWidget;

// The interface choice, shown when the machine has two or more interfaces and no remembered
// choice applies: a table of the interfaces (name, connection status), a box to remember the
// choice, and a confirm button. Confirming stores the remember setting and asks the owner to
// dial (dialRequested); the owner dials without blocking the window and reports back with
// dialFinished, after which the window closes.
class netList : public QDialog
{
    Q_OBJECT
public:
    explicit netList(QWidget *parent = nullptr);

    void setUser(const QString &user) { _user = user; }
    void setPass(const QString &pass) { _pass = pass; }
    // Rows {"name", "status"} in interface-list order: the row is the dial's interface index.
    void setNetArr(const std::vector<QVariantMap> &netArr);
    // Where the "设置" button of the error alert leads (tests give a tool-less one).
    void setNetworkSettings(NetworkSettings settings) { _settings = std::move(settings); }

    QTableWidget *tableView = nullptr;
    QCheckBox *rememberChoiceBtn = nullptr;
    QPushButton *commitBtn = nullptr;

Q_SIGNALS:
    // Dial `index` of the interface list (DVApp::NotFound when no row is selected, which the
    // dial refuses).
    void dialRequested(const QString &user, const QString &pass, quint64 index);

public Q_SLOTS:
    void commitClick();
    // The dial's outcome: shows the error when it failed, then closes the window.
    void dialFinished(const DVError &error, bool failed);
    // Escape and the close button do nothing while a dial is under way: its outcome still has
    // to be shown here.
    void reject() override;

private:
    void setAlert(const QString &buttonTitle, const QString &messageText, const QString &informativeText);

    QString _user;
    QString _pass;
    std::vector<QVariantMap> _netArr;
    NetworkSettings _settings;
    bool _dialing = false;
};
