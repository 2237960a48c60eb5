#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <vector>

// One node of the area tree that the area selection offers: a province, city, school,
// college or network operator. The root's children are the provinces.
//
// The tree comes from a shipped JSON file ({"name", "code", "item": [children]}). Reading is
// tolerant: a file that is not JSON, whose root is not an object, whose nodes have members of
// the wrong kind, or that nests deeper than any real tree does gives an empty tree (one log
// line says why), never a partial or a crash.
class areaModel
{
public:
    // Deeper than root → province → city → school → college → operator with room to spare,
    // and far below what would strain the stack while building.
    static constexpr int MaxDepth = 16;

    QString name;
    QString code;
    std::vector<areaModel> item;

    // Data source of a drop-down list: the number of children and the name of one of them
    // (empty text outside the range).
    qint64 numberOfItemsInComboBox() const { return qint64(item.size()); }
    QString comboBox(qint64 index) const;
    // Names of all children, in order.
    QStringList childNames() const;

    // The child at `index`, or null when the index is negative or not below the number of
    // children. A null node has no children.
    static const areaModel *getAreasFrom(const areaModel *node, qint64 index);

    // Parses the tree; an empty tree (and the reason in `error` when given, else in the log)
    // when the data is unusable.
    static areaModel fromData(const QByteArray &data, QString *error = nullptr);
    // Reads and parses a file; a missing or unreadable file gives an empty tree as well.
    static areaModel fromFile(const QString &path, QString *error = nullptr);
};
