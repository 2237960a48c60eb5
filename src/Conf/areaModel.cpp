#include "areaModel.h"

#include "Util/Log.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

namespace {

// Builds `node` from `object`; false (with the reason) when a member has the wrong kind or the
// tree is too deep. Missing members are allowed: a node without "item" is a leaf, a node
// without "code" adds nothing to the area code.
bool build(const QJsonObject &object, int depth, areaModel &node, QString &reason)
{
    if (depth > areaModel::MaxDepth) {
        reason = QStringLiteral("area tree nested deeper than %1 levels").arg(areaModel::MaxDepth);
        return false;
    }
    const auto textMember = [&](const QString &key, QString &out) {
        const QJsonValue value = object.value(key);
        if (value.isUndefined())
            return true;
        if (!value.isString()) {
            reason = QStringLiteral("area node member \"%1\" is not a string").arg(key);
            return false;
        }
        out = value.toString();
        return true;
    };
    if (!textMember(QStringLiteral("name"), node.name) || !textMember(QStringLiteral("code"), node.code))
        return false;

    const QJsonValue items = object.value(QStringLiteral("item"));
    if (items.isUndefined())
        return true;
    if (!items.isArray()) {
        reason = QStringLiteral("area node member \"item\" is not an array");
        return false;
    }
    const QJsonArray array = items.toArray();
    node.item.reserve(size_t(array.size()));
    for (const QJsonValue &child : array) {
        if (!child.isObject()) {
            reason = QStringLiteral("area node child is not an object");
            return false;
        }
        node.item.emplace_back();
        if (!build(child.toObject(), depth + 1, node.item.back(), reason))
            return false;
    }
    return true;
}

areaModel failed(const QString &reason, QString *error)
{
    if (error)
        *error = reason;
    else
        DVLOG() << "area tree unusable, the lists stay empty: " << reason;
    return {};
}

} // namespace

QString areaModel::comboBox(qint64 index) const
{
    const areaModel *child = getAreasFrom(this, index);
    return child ? child->name : QString();
}

QStringList areaModel::childNames() const
{
    QStringList names;
    names.reserve(qsizetype(item.size()));
    for (const areaModel &child : item)
        names << child.name;
    return names;
}

const areaModel *areaModel::getAreasFrom(const areaModel *node, qint64 index)
{
    if (!node || index < 0 || quint64(index) >= node->item.size())
        return nullptr;
    return &node->item[size_t(index)];
}

areaModel areaModel::fromData(const QByteArray &data, QString *error)
{
    QJsonParseError parseError{};
    const QJsonDocument document = QJsonDocument::fromJson(data, &parseError);
    if (parseError.error != QJsonParseError::NoError)
        return failed(QStringLiteral("not JSON (code %1): %2").arg(int(parseError.error)).arg(parseError.errorString()),
                      error);
    if (!document.isObject())
        return failed(QStringLiteral("the root is not an object"), error);

    areaModel root;
    QString reason;
    if (!build(document.object(), 0, root, reason))
        return failed(reason, error);
    return root;
}

areaModel areaModel::fromFile(const QString &path, QString *error)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return failed(QStringLiteral("cannot read %1: %2").arg(path, file.errorString()), error);
    return fromData(file.readAll(), error);
}
