// The event log: one JSON record per call in the `event` log. The compact type string is checked
// against the counted values before anything is formatted, so a value that was not passed is
// never read; a mismatch is written as an error record and answered with 22.
#include <cstdio>
#include <string>

extern "C" {
#include <lauxlib.h>
}

#include <nlohmann/json.hpp>

#include "host.h"
#include "qav_event.h"

namespace {

using zakhost::Json;

const char *const kCallNames[] = {"QAV_EventLog", "QAV_EventLogVs"};

std::string Hex32(uint32_t value) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%08X", value);
    return text;
}

// SYS_TIME is packed: its fields are copied out, not bound by reference.
Json TimeObject(const SYS_TIME &t) {
    Json object = Json::object();
    object["year"] = static_cast<uint32_t>(t.year);
    object["month"] = static_cast<uint32_t>(t.month);
    object["date"] = static_cast<uint32_t>(t.date);
    object["hour"] = static_cast<uint32_t>(t.hour);
    object["minute"] = static_cast<uint32_t>(t.minute);
    object["second"] = static_cast<uint32_t>(t.second);
    object["week"] = static_cast<uint32_t>(t.week);
    object["millSec"] = static_cast<uint32_t>(t.millSec);
    return object;
}

// A value as it was passed, whatever the type string says.
Json AsPassed(const QAV_EVENT_VALUE &value) {
    switch (value.kind) {
    case QAV_EVENT_INT:
        return Json(value.v.i);
    case QAV_EVENT_UINT:
        return Json(value.v.u);
    case QAV_EVENT_STR:
        return value.v.s != nullptr ? Json(value.v.s) : Json{};
    case QAV_EVENT_TIME:
        return value.v.t != nullptr ? TimeObject(*value.v.t) : Json{};
    default:
        return Json{};
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
std::string Fill(Slot slot, const QAV_EVENT_VALUE &value, Json *out) {
    switch (slot) {
    case Slot::Signed:
    case Slot::Unsigned: {
        if (value.kind != QAV_EVENT_INT && value.kind != QAV_EVENT_UINT) return "is not an integer";
        uint32_t bits = value.kind == QAV_EVENT_INT ? static_cast<uint32_t>(value.v.i) : value.v.u;
        *out = slot == Slot::Signed ? Json(static_cast<int32_t>(bits)) : Json(bits);
        return {};
    }
    case Slot::Text:
        if (value.kind != QAV_EVENT_STR) return "is not a text";
        if (value.v.s == nullptr) return "is a null text";
        *out = Json(value.v.s);
        return {};
    case Slot::Time:
        if (value.kind != QAV_EVENT_TIME) return "is not a time record";
        if (value.v.t == nullptr) return "is a null time record";
        *out = TimeObject(*value.v.t);
        return {};
    }
    return "has no slot";
}

// The used bytes of a control block as lower-case hexadecimal text.
std::string ControlBytes(const QAV_EVENT_CTRL *control) {
    static const char kHex[] = "0123456789abcdef";
    std::string bytes;
    if (control == nullptr || control->pucBuffer == nullptr) return bytes;
    for (uint16_t i = 0; i < control->usUsedLen && i < control->usCapacity; ++i) {
        bytes += kHex[control->pucBuffer[i] >> 4];
        bytes += kHex[control->pucBuffer[i] & 0xF];
    }
    return bytes;
}

uint32_t WriteRecord(const char *call, const char *extraKey, uint32_t componentId, uint32_t extra,
                     uint32_t infoCode, const char *format, const QAV_EVENT_VALUE *values, uint32_t count,
                     const QAV_EVENT_CTRL *control = nullptr) {
    Json record = Json::object();
    record["call"] = call;
    record["cid"] = componentId;
    if (extraKey != nullptr) record[extraKey] = extra;
    record["info"] = Hex32(infoCode);
    record["format"] = format != nullptr ? Json(format) : Json();
    if (control != nullptr) record["control"] = ControlBytes(control);
    if (values == nullptr) count = 0;

    std::vector<Slot> slots;
    std::string error = ParseFormat(format, &slots);
    Json filled = Json::array();
    if (error.empty() && slots.size() != count)
        error = "type string has " + std::to_string(slots.size()) + " values, " + std::to_string(count) +
                " passed";
    for (size_t i = 0; error.empty() && i < slots.size(); ++i) {
        Json item;
        std::string wrong = Fill(slots[i], values[i], &item);
        if (!wrong.empty()) error = "value " + std::to_string(i + 1) + " " + wrong;
        filled.push_back(std::move(item));
    }
    if (error.empty()) {
        record["values"] = std::move(filled);
        zakhost::log_json("event", std::move(record));
        return 0;
    }
    Json passed = Json::array();
    for (uint32_t i = 0; i < count; ++i)
        passed.push_back(AsPassed(values[i]));
    record["values"] = std::move(passed);
    record["error"] = error;
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
    if (call > QAV_EVENT_CALL_VS) return QAV_EVENT_MISMATCH;
    if (zakhost::injected(kCallNames[call], &injected))
        return injected == 0 ? QAV_EVENT_MISMATCH : static_cast<uint32_t>(injected);
    const char *extraKey = call == QAV_EVENT_CALL_VS ? "vs" : nullptr;
    return WriteRecord(kCallNames[call], extraKey, componentId, extra, infoCode, format, values, count);
}

uint32_t QAV_EventLogCtrlValues(uint32_t componentId, const QAV_EVENT_CTRL *control, uint32_t infoCode,
                                const char *format, const QAV_EVENT_VALUE *values, uint32_t count) {
    int64_t injected = 0;
    if (zakhost::injected("QAV_EventLogCtrl", &injected))
        return injected == 0 ? QAV_EVENT_MISMATCH : static_cast<uint32_t>(injected);
    static const QAV_EVENT_CTRL kEmpty{nullptr, 0, 0};
    return WriteRecord("QAV_EventLogCtrl", nullptr, componentId, 0, infoCode, format, values, count,
                       control != nullptr ? control : &kEmpty);
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
