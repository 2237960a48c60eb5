#pragma once

#include "support/LogCapture.h"

#include "Conf/Conf.h"

#include <gtest/gtest.h>

#include <string>

namespace ConfTest {

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

// Each test starts with no preference and no area, and leaves no area and no shared configuration.
class Fixture : public ::testing::Test
{
protected:
    void SetUp() override
    {
        resetPreferences();
        Conf::setArea(QString());
    }
    void TearDown() override
    {
        Conf::setArea(QString());
        Conf::setShared(nullptr);
    }
};

} // namespace ConfTest
