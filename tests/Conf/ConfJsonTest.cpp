// The linear-time reader of large configuration documents, against the JSON library's own
// parser as the reference.
#include "Conf/ConfJson.h"
#include "support/TestData.h"

#include <gtest/gtest.h>

namespace {

using json = nlohmann::ordered_json;

TEST(ConfJsonTest, ReadsLikeTheLibraryParser)
{
    std::string wide = "{";
    for (int i = 0; i < 3000; ++i)
        wide += (i ? ",\"" : "\"") + std::to_string(5000 - i) + "\":" + std::to_string(i);
    wide += "}";

    const auto data = TestData::load("conf.json"); // the loop must not outlive the document
    std::vector<std::string> documents{wide};
    for (const auto &doc : data.at("parserAccepts"))
        documents.push_back(doc.get<std::string>());
    for (const std::string &doc : documents) {
        SCOPED_TRACE(doc.substr(0, 80));
        QString error;
        const auto ours = parseOrderedJson(QByteArray::fromStdString(doc), &error);
        ASSERT_TRUE(ours.has_value()) << error.toStdString();
        const json reference = json::parse(doc);
        EXPECT_EQ(*ours, reference); // ordered_json compares members in order
    }
}

TEST(ConfJsonTest, RefusesWhatTheLibraryRefuses)
{
    const auto data = TestData::load("conf.json"); // the loop must not outlive the document
    std::vector<std::string> documents{"\xff\xfe"};
    for (const auto &doc : data.at("parserRefuses"))
        documents.push_back(doc.get<std::string>());
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
