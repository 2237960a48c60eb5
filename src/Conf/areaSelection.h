#pragma once

#include "areaModel.h"

#include <QString>
#include <QStringList>

#include <array>
#include <optional>

// What the area selection view shows and decides, without any widget: the node chosen in each
// of the four dependent lists (province, city, school, college), the operator options of the
// chosen college, the area code, and the commit rules with the texts of their alerts.
class areaSelection
{
public:
    enum Level { Province = 0, City = 1, School = 2, College = 3, LevelCount = 4 };
    // At most this many operator options are offered for a college.
    static constexpr int MaxOperators = 3;

    explicit areaSelection(areaModel root = {});
    // The choices point into the tree it holds.
    areaSelection(const areaSelection &) = delete;
    areaSelection &operator=(const areaSelection &) = delete;

    // Starts over on a new tree: nothing chosen, the province list fed from the root.
    void resetTree(areaModel root);
    const areaModel &root() const { return _root; }

    // A choice in list `level` (the index in that list; -1 or out of range chooses nothing).
    // Every list below is emptied and its choice forgotten, the operator choice with them.
    void select(int level, qint64 index);

    // The node chosen in a list; null when none.
    const areaModel *chosen(int level) const;
    // The node whose children list `level` shows; null when the list is empty (nothing chosen
    // above it).
    const areaModel *listSource(int level) const;
    QStringList namesForList(int level) const;

    // The operator options of the chosen college, at most MaxOperators; empty when the college
    // has none (the operator box is then hidden).
    QStringList operatorNames() const;
    bool operatorBoxVisible() const { return !operatorNames().isEmpty(); }

    // The province's code, then ":" and the code of each of city, school and college that has
    // one. For codes 21, 01, 105 and 3: "21:01:105:3".
    QString getAreaCode() const;

    struct CommitResult
    {
        bool ok = false;
        QString areaCode;  // when ok
        QString alertText; // when not ok: what to tell the user
    };
    // The code to store for a commit with operator button `chosenOperator` switched on (none
    // when nullopt), or the alert that stops it.
    CommitResult commit(std::optional<int> chosenOperator) const;

    // Makes `areaCode` the current area and remembers it for the next start.
    static void upLoad(const QString &areaCode);

private:
    areaModel _root;
    std::array<const areaModel *, LevelCount> _chosen{};
};
