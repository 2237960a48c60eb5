// The area tree (the shipped area file) and the selection walked over it: every list the view
// fills, the operator options and the area code, for a path through the tree picked by the
// input's last bytes.

#include "FuzzSupport.h"

#include "Conf/areaModel.h"
#include "Conf/areaSelection.h"

DORVIK_FUZZ_INIT

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    QString error;
    areaSelection selection(areaModel::fromData(Fuzz::bytes(data, size), &error));
    for (int level = 0; level < areaSelection::LevelCount; ++level) {
        const qint64 index = size > std::size_t(level) ? qint64(data[size - 1 - level] % 8) - 1 : 0;
        selection.select(level, index);
        (void)selection.namesForList(level);
        (void)areaModel::getAreasFrom(selection.listSource(level), index);
    }
    (void)selection.operatorNames();
    (void)selection.getAreaCode();
    (void)selection.commit(std::nullopt);
    (void)selection.commit(size > 0 ? int(data[0] % 4) - 1 : 0);
    return 0;
}
