// The linear-time reader of large configuration documents, against the JSON library's own
// parser as the reference.
#include "Conf/ConfJson.h"

#include <gtest/gtest.h>

namespace {

using json = nlohmann::ordered_json;

TEST(ConfJsonTest, ReadsLikeTheLibraryParser)
{
    std::string wide = "{";
    for (int i = 0; i < 3000; ++i)
        wide += (i ? ",\"" : "\"") + std::to_string(5000 - i) + "\":" + std::to_string(i);
    wide += "}";

    const std::vector<std::string> documents = {
        "{}",
        "[]",
        "\"text\"",
        "42",
        "-7",
        "18446744073709551615",
        "1.5e3",
        "true",
        "null",
        R"({"b": 1, "a": 2, "c": {"z": [1, {"y": null}, []], "x": "宽带\u0041"}})",
        R"({"dup": 1, "other": 2, "dup": 3})",
        R"({"dup": {"a": 1}, "dup": [1, 2]})",
        R"([{"a": 1, "a": 2}, {"b": [[], {}]}])",
        " \n\t{\"spaced\" : [ 1 , 2 ] } \n",
        wide,
    };
    for (const std::string &doc : documents) {
        SCOPED_TRACE(doc.substr(0, 80));
        QString error;
        const auto ours = parseOrderedJson(QByteArray::fromStdString(doc), &error);
        ASSERT_TRUE(ours.has_value()) << error.toStdString();
        const json reference = json::parse(doc);
        EXPECT_EQ(*ours, reference);
        // Same members in the same order.
        EXPECT_EQ(ours->dump(), reference.dump());
    }
}

TEST(ConfJsonTest, RefusesWhatTheLibraryRefuses)
{
    const std::vector<std::string> documents = {
        "",         " ",           "{",     "}",   "{\"a\": }", "{\"a\" 1}",
        "[1,]",     "{\"a\": 1,}", "{} {}", "tru", "\"open",    "{\"a\": 1} trailing",
        "\xff\xfe",
    };
    for (const std::string &doc : documents) {
        SCOPED_TRACE(doc);
        EXPECT_FALSE(json::accept(doc));
        QString error;
        EXPECT_FALSE(parseOrderedJson(QByteArray::fromStdString(doc), &error).has_value());
        EXPECT_FALSE(error.isEmpty());
        EXPECT_FALSE(parseOrderedJson(QByteArray::fromStdString(doc), nullptr).has_value());
    }
}

} // namespace
