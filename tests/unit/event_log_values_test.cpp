// The event log's type string against the counted values: a mismatch is an error record (22).
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include <nlohmann/json.hpp>

#include "host.h"
#include "qav_event.h"

namespace {

using zakhost::Json;

Json LastEvent() {
    auto records = zakhost::log_records("event");
    return records.empty() ? Json{} : records.back();
}

class EventValues : public ::testing::Test {
  protected:
    void SetUp() override { zakhost::log_clear(); }
};

TEST_F(EventValues, MatchingValuesAreRecordedInOrder) {
    EXPECT_EQ(QAV_EventLog(5u, 0x8090006u, "%d%u%s", -1, 4000000000u, "txt"), 0u);
    Json e = LastEvent();
    EXPECT_FALSE(e.contains("error"));
    EXPECT_EQ(e["values"].dump(), R"([-1,4000000000,"txt"])");
    // Bytes that are not UTF-8 stay in the record and become U+FFFD in its line, which stays JSON.
    EXPECT_EQ(QAV_EventLog(5u, 1u, "%s", "a\xFF"), 0u);
    EXPECT_EQ(LastEvent()["values"][0].get<std::string>(), "a\xFF");
    EXPECT_NE(zakhost::log_messages("event").back().find("\"values\":[\"a\xEF\xBF\xBD\"]"),
              std::string::npos);
}

TEST_F(EventValues, AnIntegerOfEitherSignFillsBothIntegerSlots) {
    EXPECT_EQ(QAV_EventLogVs(1u, 2u, 3u, "%d%u", 0xFFFFFFFFu, -1), 0u);
    EXPECT_EQ(LastEvent()["values"].dump(), "[-1,4294967295]");
}

TEST_F(EventValues, MismatchesAreErrorRecords) {
    SYS_TIME t{};
    uint8_t controlBytes[4] = {0x01, 0x00, 0xFF, 0xEE};
    const QAV_EVENT_CTRL control{controlBytes, 3, sizeof controlBytes};
    struct {
        uint32_t status;
        const char *expected;
    } cases[] = {
        {QAV_EventLog(0u, 1u, "%d%s", 1), "type string has 2 values, 1 passed"},
        {QAV_EventLog(0u, 1u, "%d", 1, 2), "type string has 1 values, 2 passed"},
        {QAV_EventLog(0u, 1u, "%s", 1), "value 1 is not a text"},
        {QAV_EventLog(0u, 1u, "%d", "x"), "value 1 is not an integer"},
        {QAV_EventLog(0u, 1u, "%_T_12", "x"), "value 1 is not a time record"},
        {QAV_EventLog(0u, 1u, "%s%_T_12", "x", static_cast<const SYS_TIME *>(nullptr)),
         "value 2 is a null time record"},
        {QAV_EventLog(0u, 1u, "%s", static_cast<const char *>(nullptr)), "value 1 is a null text"},
        {QAV_EventLog(0u, 1u, "%d %d", 1, 2), "unknown type at offset 2"},
        {QAV_EventLogCtrl(0u, &control, 1u, "%_T_1", static_cast<const SYS_TIME *>(&t)),
         "unknown type at offset 0"},
    };
    auto records = zakhost::log_records("event");
    ASSERT_EQ(records.size(), std::size(cases));
    for (size_t i = 0; i < std::size(cases); ++i) {
        EXPECT_EQ(cases[i].status, QAV_EVENT_MISMATCH) << i;
        EXPECT_EQ(records[i].value("error", ""), cases[i].expected) << i;
    }
    EXPECT_EQ(records.back().value("control", ""), "0100ff");
    EXPECT_EQ(records.back().value("call", ""), "QAV_EventLogCtrl");
    zakhost::inject("QAV_EventLogCtrl", 0, 0, 1); // result 0 reads as the general failure
    EXPECT_EQ(QAV_EventLogCtrl(0u, &control, 1u, "%d", 1), QAV_EVENT_MISMATCH);
}

TEST_F(EventValues, NothingBeyondTheCountIsRead) {
    // The values fill a block exactly the count long: the sanitizer build reports any read past it.
    auto one = std::make_unique<QAV_EVENT_VALUE[]>(1);
    one[0].kind = QAV_EVENT_INT;
    one[0].v.i = 42;
    EXPECT_EQ(QAV_EventLogValues(QAV_EVENT_CALL_LOG, 0, 0, 1, "%d%d%d%s", one.get(), 1), QAV_EVENT_MISMATCH);
    EXPECT_EQ(LastEvent()["values"].dump(), "[42]");
    EXPECT_EQ(QAV_EventLogValues(QAV_EVENT_CALL_LOG, 0, 0, 1, "%d", nullptr, 3), QAV_EVENT_MISMATCH);
    EXPECT_EQ(QAV_EventLogValues(7, 0, 0, 1, "", nullptr, 0), QAV_EVENT_MISMATCH);
    EXPECT_EQ(QAV_EventLogValues(QAV_EVENT_CALL_LOG, 0, 0, 1, nullptr, nullptr, 0), QAV_EVENT_MISMATCH);
    EXPECT_EQ(LastEvent().value("error", ""), "no type string");
}

} // namespace
