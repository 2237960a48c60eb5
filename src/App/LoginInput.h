#pragma once

#include <QString>

#include <optional>

// The checks every log-in applies to what the user typed before anything is dialled, shared by
// the log-in window and the headless client so both refuse the same input with the same text.
// In this order: an empty account name, an empty password, then white space anywhere in
// either. Returns the alert's informative text ("用户名不能为空", ...) for the first check that
// fails, nothing when the input may be dialled. The alert's title is always "提示".
std::optional<QString> checkLoginInput(const QString &name, const QString &password);
