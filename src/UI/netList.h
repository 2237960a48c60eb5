#pragma once

#include "Util/DVError.h"

#include <QDialog>
#include <QString>
#include <QVariantMap>

#include <vector>

class QCheckBox;
class QTableWidget;

// The interface choice: one row per interface (name, status), a box to remember the choice,
// and a confirm button. On confirm it stores the remember setting and asks its owner to dial
// (dialRequested); the owner reports back with dialFinished, which shows the error and closes.
class netList : public QDialog
{
    Q_OBJECT
public:
    explicit netList(QWidget *parent = nullptr);

    void setUser(const QString &user) { _user = user; }
    void setPass(const QString &pass) { _pass = pass; }
    void setNetArr(const std::vector<QVariantMap> &rows);

Q_SIGNALS:
    void dialRequested(const QString &user, const QString &pass, quint64 index);

public Q_SLOTS:
    void dialFinished(const DVError &error, bool failed);

private:
    void commitClick();

    QString _user;
    QString _pass;
    bool _committed = false;
    QTableWidget *tableView = nullptr;
    QCheckBox *rememberChoiceBtn = nullptr;
};
