#include "SimService.h"

bool SimRegistry::add(SimServiceEntry entry)
{
    const_cast<std::vector<SimServiceEntry> &>(all()).push_back(std::move(entry));
    return true;
}

const std::vector<SimServiceEntry> &SimRegistry::all()
{
    static std::vector<SimServiceEntry> entries;
    return entries;
}
