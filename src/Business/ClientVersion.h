#pragma once

#include <QString>

#include <optional>

// The client's short version text as the business requests report it: the application's
// version when one is set, else the version the build was made with.
std::optional<QString> dvClientShortVersion();
