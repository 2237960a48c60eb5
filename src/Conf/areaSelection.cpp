#include "areaSelection.h"

#include "Conf/UIConf.h"
#include "Util/UserDefaults.h"

namespace {
const QString provinceAlert = QStringLiteral("至少需要选择所在的省");
const QString operatorAlert = QStringLiteral("请选择运营商");
} // namespace

areaSelection::areaSelection(areaModel root)
{
    resetTree(std::move(root));
}

void areaSelection::resetTree(areaModel root)
{
    _root = std::move(root);
    _chosen.fill(nullptr);
}

void areaSelection::select(int level, qint64 index)
{
    if (level < 0 || level >= LevelCount)
        return;
    // Everything below is forgotten, the college included: a college left over from another
    // province would otherwise put a code into the area that the user can no longer see.
    for (int below = level; below < LevelCount; ++below)
        _chosen[size_t(below)] = nullptr;
    _chosen[size_t(level)] = areaModel::getAreasFrom(listSource(level), index);
}

const areaModel *areaSelection::chosen(int level) const
{
    return level >= 0 && level < LevelCount ? _chosen[size_t(level)] : nullptr;
}

const areaModel *areaSelection::listSource(int level) const
{
    if (level == Province)
        return &_root;
    return chosen(level - 1);
}

QStringList areaSelection::namesForList(int level) const
{
    const areaModel *source = listSource(level);
    return source ? source->childNames() : QStringList();
}

QStringList areaSelection::operatorNames() const
{
    const areaModel *college = chosen(College);
    if (!college)
        return {};
    return college->childNames().mid(0, MaxOperators);
}

QString areaSelection::getAreaCode() const
{
    const areaModel *province = chosen(Province);
    QString code = province ? province->code : QString();
    for (int level = City; level < LevelCount; ++level) {
        const areaModel *node = chosen(level);
        if (node && !node->code.isEmpty())
            code += QLatin1Char(':') + node->code;
    }
    return code;
}

areaSelection::CommitResult areaSelection::commit(std::optional<int> chosenOperator) const
{
    const areaModel *province = chosen(Province);
    if (!province || province->code.isEmpty())
        return {false, {}, provinceAlert};

    QString code = getAreaCode();
    const areaModel *college = chosen(College);
    if (college && !college->item.empty()) {
        const areaModel *op = chosenOperator && *chosenOperator < MaxOperators
                                  ? areaModel::getAreasFrom(college, *chosenOperator)
                                  : nullptr;
        if (!op)
            return {false, {}, operatorAlert};
        code += QLatin1Char(':') + op->code;
    }
    return {true, code, {}};
}

void areaSelection::upLoad(const QString &areaCode)
{
    UIConf::shared().setArea(areaCode);
    UserDefaults::saveValue(areaCode, PrefKey::areacode);
}
