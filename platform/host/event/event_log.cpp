// The event log: one JSON record per call in the `event` log. The compact type string is checked
// against the counted values before anything is formatted, so a value that was not passed is
// never read; a mismatch is written as an error record and answered with 22.
#include <cstdio>
#include <string>

extern "C" {
#include <lauxlib.h>
}

#include "host.h"
#include "qav_event.h"

namespace {

const char *const kCallNames[] = {"QAV_EventLog", "QAV_EventLogVs", "QAV_EventLogCtrl"};

std::string Hex32(uint32_t value) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%08X", value);
    return text;
}

zakhost::Json TimeObject(const SYS_TIME &t) {
    zakhost::Json object = zakhost::Json::object();
    object.set("year", zakhost::Json::of(static_cast<int64_t>(t.year)));
    object.set("month", zakhost::Json::of(static_cast<int64_t>(t.month)));
    object.set("date", zakhost::Json::of(static_cast<int64_t>(t.date)));
    object.set("hour", zakhost::Json::of(static_cast<int64_t>(t.hour)));
    object.set("minute", zakhost::Json::of(static_cast<int64_t>(t.minute)));
    object.set("second", zakhost::Json::of(static_cast<int64_t>(t.second)));
    object.set("week", zakhost::Json::of(static_cast<int64_t>(t.week)));
    object.set("millSec", zakhost::Json::of(static_cast<int64_t>(t.millSec)));
    return object;
}

// A value as it was passed, whatever the type string says.
zakhost::Json AsPassed(const QAV_EVENT_VALUE &value) {
    switch (value.kind) {
    case QAV_EVENT_INT:
        return zakhost::Json::of(static_cast<int64_t>(value.v.i));
    case QAV_EVENT_UINT:
        return zakhost::Json::of(static_cast<int64_t>(value.v.u));
    case QAV_EVENT_STR:
        return value.v.s != nullptr ? zakhost::Json::of(std::string(value.v.s)) : zakhost::Json{};
    case QAV_EVENT_TIME:
        return value.v.t != nullptr ? TimeObject(*value.v.t) : zakhost::Json{};
    default:
        return zakhost::Json{};
    }
}

enum class Slot { Signed, Unsigned, Text, Time };

// Splits the type string into its slots; an empty text for success, else what is wrong.
std::string ParseFormat(const char *format, std::vector<Slot> *slots) {
    if (format == nullptr) return "no type string";
    std::string_view rest{format};
    while (!rest.empty()) {
        size_t at = std::string_view{format}.size() - rest.size();
        if (rest.substr(0, 2) == "%d") {
            slots->push_back(Slot::Signed);
            rest.remove_prefix(2);
        } else if (rest.substr(0, 2) == "%u") {
            slots->push_back(Slot::Unsigned);
            rest.remove_prefix(2);
        } else if (rest.substr(0, 2) == "%s") {
            slots->push_back(Slot::Text);
            rest.remove_prefix(2);
        } else if (rest.substr(0, 6) == "%_T_12") {
            slots->push_back(Slot::Time);
            rest.remove_prefix(6);
        } else {
            return "unknown type at offset " + std::to_string(at);
        }
    }
    return {};
}

// The value for one slot, or an error text. Integers of either sign fill %d and %u (the bits are
// the same word); texts and time records must be what the slot asks for and not null.
std::string Fill(Slot slot, const QAV_EVENT_VALUE &value, zakhost::Json *out) {
    switch (slot) {
    case Slot::Signed:
    case Slot::Unsigned: {
        if (value.kind != QAV_EVENT_INT && value.kind != QAV_EVENT_UINT) return "is not an integer";
        uint32_t bits = value.kind == QAV_EVENT_INT ? static_cast<uint32_t>(value.v.i) : value.v.u;
        *out = slot == Slot::Signed ? zakhost::Json::of(static_cast<int64_t>(static_cast<int32_t>(bits)))
                                    : zakhost::Json::of(static_cast<int64_t>(bits));
        return {};
    }
    case Slot::Text:
        if (value.kind != QAV_EVENT_STR) return "is not a text";
        if (value.v.s == nullptr) return "is a null text";
        *out = zakhost::Json::of(std::string(value.v.s));
        return {};
    case Slot::Time:
        if (value.kind != QAV_EVENT_TIME) return "is not a time record";
        if (value.v.t == nullptr) return "is a null time record";
        *out = TimeObject(*value.v.t);
        return {};
    }
    return "has no slot";
}

uint32_t WriteRecord(const char *call, const char *extraKey, uint32_t componentId, uint32_t extra,
                     uint32_t infoCode, const char *format, const QAV_EVENT_VALUE *values, uint32_t count) {
    zakhost::Json record = zakhost::Json::object();
    record.set("call", zakhost::Json::of(std::string(call)));
    record.set("cid", zakhost::Json::of(static_cast<int64_t>(componentId)));
    if (extraKey != nullptr) record.set(extraKey, zakhost::Json::of(static_cast<int64_t>(extra)));
    record.set("info", zakhost::Json::of(Hex32(infoCode)));
    record.set("format", format != nullptr ? zakhost::Json::of(std::string(format)) : zakhost::Json{});
    if (values == nullptr) count = 0;

    std::vector<Slot> slots;
    std::string error = ParseFormat(format, &slots);
    zakhost::Json filled = zakhost::Json::array();
    if (error.empty() && slots.size() != count)
        error = "type string has " + std::to_string(slots.size()) + " values, " + std::to_string(count) +
                " passed";
    for (size_t i = 0; error.empty() && i < slots.size(); ++i) {
        zakhost::Json item;
        std::string wrong = Fill(slots[i], values[i], &item);
        if (!wrong.empty()) error = "value " + std::to_string(i + 1) + " " + wrong;
        filled.push(std::move(item));
    }
    if (error.empty()) {
        record.set("values", std::move(filled));
        zakhost::log_json("event", std::move(record));
        return 0;
    }
    zakhost::Json passed = zakhost::Json::array();
    for (uint32_t i = 0; i < count; ++i)
        passed.push(AsPassed(values[i]));
    record.set("values", std::move(passed));
    record.set("error", zakhost::Json::of(error));
    zakhost::log_json("event", std::move(record));
    return QAV_EVENT_MISMATCH;
}

// The dialog hook a test installs with zakhost.patch_dialog(true): records what it is handed.
uint32_t RecordingDialog(uint32_t componentId, uint32_t infoCode, const char *format,
                         const QAV_EVENT_VALUE *values, uint32_t count) {
    return WriteRecord("PatchDialog", nullptr, componentId, 0, infoCode, format, values, count);
}

int SetPatchLogLevel(lua_State *state) {
    g_uiPatchLogLevel = static_cast<uint32_t>(luaL_checkinteger(state, 1));
    return 0;
}

int SetPatchDialog(lua_State *state) {
    g_pfPatchDialogFunc = lua_toboolean(state, 1) ? &RecordingDialog : nullptr;
    return 0;
}

const zakhost::ControlFunction kPatchLogLevel{"patch_log_level", &SetPatchLogLevel};
const zakhost::ControlFunction kPatchDialog{"patch_dialog", &SetPatchDialog};

} // namespace

extern "C" {

uint32_t g_uiPatchLogLevel = 1;
PAT_DIALOG_FUNC g_pfPatchDialogFunc = nullptr;

uint32_t QAV_EventLogValues(uint32_t call, uint32_t componentId, uint32_t extra, uint32_t infoCode,
                            const char *format, const QAV_EVENT_VALUE *values, uint32_t count) {
    int64_t injected = 0;
    if (call > QAV_EVENT_CALL_CTRL) return QAV_EVENT_MISMATCH;
    if (zakhost::injected(kCallNames[call], &injected))
        return injected == 0 ? QAV_EVENT_MISMATCH : static_cast<uint32_t>(injected);
    const char *extraKey = call == QAV_EVENT_CALL_VS ? "vs" : call == QAV_EVENT_CALL_CTRL ? "ctrl" : nullptr;
    return WriteRecord(kCallNames[call], extraKey, componentId, extra, infoCode, format, values, count);
}

uint32_t ZAK_SendClockChangeTrap(uint32_t componentId, const SYS_TIME *newTime) {
    int64_t injected = 0;
    if (zakhost::injected("ZAK_SendClockChangeTrap", &injected))
        return injected == 0 ? QAV_EVENT_MISMATCH : static_cast<uint32_t>(injected);
    QAV_EVENT_VALUE value{QAV_EVENT_TIME, {}};
    value.v.t = newTime;
    return WriteRecord("ZAK_SendClockChangeTrap", nullptr, componentId, 0, 0x809000A, "%_T_12", &value, 1);
}

} // extern "C"
