#pragma once

#include "support/LogCapture.h"

#include "Conf/Conf.h"

#include <QStringList>

#include <mutex>
#include <string>
#include <vector>

namespace ConfTest {

// Every setting a complete file must hold, written out here rather than taken from the code
// under test, so that a setting dropped from (or misspelled in) the schema is noticed.
extern const std::vector<std::string> kAllPaths;

// A complete configuration in which every setting holds {"default": "<its path>"}, except
// the ones whose getters convert (rule order, log-in switches, SMS time-out).
ordered_json completeConfig();
// Sets or removes the node at a dotted path ("app.website.host").
void setPath(ordered_json &root, const std::string &path, ordered_json value);
void erasePath(ordered_json &root, const std::string &path);
std::unique_ptr<Conf> load(const ordered_json &root);

// The plain source of the shipped configuration.
ordered_json shippedSource();

// Forgets every preference of this test process.
void resetPreferences();

using LogCapture = ::LogCapture;

} // namespace ConfTest
