// The startup stamp store: every stamp becomes one JSON record of the `stamp` log (and of
// `zakhost.stamps()`). The store takes over the items handed to it and frees them at once, so a
// stamp leaves no memory behind.
#include <time.h>

#include <cstring>
#include <string>

#include "host.h"
#include "zak_memory.h"
#include "zak_stamp.h"

namespace {

zakhost::Json u32(uint32_t value) {
    return zakhost::Json::of(static_cast<int64_t>(value));
}

zakhost::Json record_of(const char *call, uint32_t flag1, uint32_t flag2, const ZAK_STARTUP_STAMP *stamp) {
    zakhost::Json record = zakhost::Json::object();
    record.set("call", zakhost::Json::of(std::string(call)));
    record.set("flag1", u32(flag1)).set("flag2", u32(flag2));
    zakhost::Json values = zakhost::Json::array();
    for (uint32_t v : stamp->auiValue)
        values.push(u32(v));
    values.push(u32(stamp->uiValue4));
    record.set("values", values);
    record.set("text",
               zakhost::Json::of(std::string(stamp->szText, strnlen(stamp->szText, sizeof stamp->szText))));
    record.set("time", zakhost::Json::array().push(u32(stamp->auiTime[0])).push(u32(stamp->auiTime[1])));
    return record;
}

// Describes and frees the items; a count above the record's capacity is cut to it.
zakhost::Json take_items(ZAK_STARTUP_STAMP *stamp) {
    zakhost::Json items = zakhost::Json::array();
    uint32_t count = stamp->uiItemCount > ZAK_STAMP_MAX_ITEMS ? ZAK_STAMP_MAX_ITEMS : stamp->uiItemCount;
    for (uint32_t i = 0; i < count; ++i) {
        ZAK_STAMP_ITEM *item = stamp->apItems[i];
        if (item == nullptr) continue;
        zakhost::Json entry = zakhost::Json::object();
        entry.set("type", u32(item->usType)).set("length", u32(item->usLen));
        if (item->usType == ZAK_STAMP_ITEM_NUMBER && item->usLen == 4) {
            uint32_t value = 0;
            std::memcpy(&value, item->aucData, sizeof value);
            entry.set("value", u32(value));
        } else if (item->usType == ZAK_STAMP_ITEM_TEXT) {
            const char *data = reinterpret_cast<const char *>(item->aucData);
            entry.set("value", zakhost::Json::of(std::string(data, strnlen(data, item->usLen))));
        }
        items.push(entry);
        ZAK_Free_F(item, "stamp_store", __LINE__);
        stamp->apItems[i] = nullptr;
    }
    return items;
}

} // namespace

extern "C" {

uint32_t ZAK_StartupStampGetTime(uint32_t time[2]) {
    int64_t result = 0;
    if (zakhost::injected("ZAK_StartupStampGetTime", &result))
        return result == 0 ? 1 : static_cast<uint32_t>(result);
    if (time == nullptr) return 1;
    timespec ts{};
    clock_gettime(CLOCK_BOOTTIME, &ts);
    time[0] = static_cast<uint32_t>(ts.tv_sec + zakhost::clock_offset());
    time[1] = static_cast<uint32_t>(ts.tv_nsec / 1000);
    return 0;
}

uint32_t ZAK_StartupStampAdd(uint32_t flag1, uint32_t flag2, ZAK_STARTUP_STAMP *stamp, uint32_t kind,
                             const char *format, ...) {
    int64_t result = 0;
    if (zakhost::injected("ZAK_StartupStampAdd", &result))
        return result == 0 ? 1 : static_cast<uint32_t>(result);
    if (stamp == nullptr) return 1;
    std::string message;
    if (format != nullptr) {
        va_list values;
        va_start(values, format);
        message = zakhost::vformat(format, values);
        va_end(values);
    }
    zakhost::Json record = record_of("ZAK_StartupStampAdd", flag1, flag2, stamp);
    record.set("kind", u32(kind));
    record.set("message", zakhost::Json::of(message));
    record.set("items", take_items(stamp));
    zakhost::log_json("stamp", record);
    return 0;
}

uint32_t ZAK_StartupStampAddImpl(uint32_t flag1, uint32_t flag2, ZAK_STARTUP_STAMP *stamp, void *,
                                 uint32_t option) {
    int64_t result = 0;
    bool fail = zakhost::injected("ZAK_StartupStampAddImpl", &result);
    if (stamp == nullptr) return 1;
    zakhost::Json record = record_of("ZAK_StartupStampAddImpl", flag1, flag2, stamp);
    record.set("option", u32(option));
    record.set("item_count", u32(stamp->uiItemCount));
    record.set("item_data_length", u32(stamp->uiItemDataLen));
    record.set("items", take_items(stamp)); // taken over even when the store refuses the stamp
    if (fail) return result == 0 ? 1 : static_cast<uint32_t>(result);
    zakhost::log_json("stamp", record);
    return 0;
}

} // extern "C"
