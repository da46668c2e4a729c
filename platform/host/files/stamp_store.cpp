// The startup stamp store: every stamp becomes one JSON record of the `stamp` log (and of
// `zakhost.stamps()`). The store takes over the items handed to it and frees them at once, so a
// stamp leaves no memory behind.
#include <time.h>

#include <cstring>
#include <string>

#include <nlohmann/json.hpp>

#include "host.h"
#include "zak_memory.h"
#include "zak_stamp.h"

namespace {

using zakhost::Json;

Json record_of(const char *call, uint32_t flag1, uint32_t flag2, const ZAK_STARTUP_STAMP *stamp) {
    Json record = Json::object();
    record["call"] = call;
    record["flag1"] = flag1;
    record["flag2"] = flag2;
    Json values = Json::array();
    for (uint32_t v : stamp->auiValue)
        values.push_back(v);
    values.push_back(stamp->uiValue4);
    record["values"] = std::move(values);
    record["text"] = std::string(stamp->szText, strnlen(stamp->szText, sizeof stamp->szText));
    record["time"] = Json::array({stamp->auiTime[0], stamp->auiTime[1]});
    return record;
}

// Describes and frees the items; a count above the record's capacity is cut to it.
Json take_items(ZAK_STARTUP_STAMP *stamp) {
    Json items = Json::array();
    uint32_t count = stamp->uiItemCount > ZAK_STAMP_MAX_ITEMS ? ZAK_STAMP_MAX_ITEMS : stamp->uiItemCount;
    for (uint32_t i = 0; i < count; ++i) {
        ZAK_STAMP_ITEM *item = stamp->apItems[i];
        if (item == nullptr) continue;
        Json entry = Json::object();
        entry["type"] = item->usType;
        entry["length"] = item->usLen;
        if (item->usType == ZAK_STAMP_ITEM_NUMBER && item->usLen == 4) {
            uint32_t value = 0;
            std::memcpy(&value, item->aucData, sizeof value);
            entry["value"] = value;
        } else if (item->usType == ZAK_STAMP_ITEM_TEXT) {
            const char *data = reinterpret_cast<const char *>(item->aucData);
            entry["value"] = std::string(data, strnlen(data, item->usLen));
        }
        items.push_back(std::move(entry));
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
    Json record = record_of("ZAK_StartupStampAdd", flag1, flag2, stamp);
    record["kind"] = kind;
    record["message"] = message;
    record["items"] = take_items(stamp);
    zakhost::log_json("stamp", std::move(record));
    return 0;
}

uint32_t ZAK_StartupStampAddImpl(uint32_t flag1, uint32_t flag2, ZAK_STARTUP_STAMP *stamp, void *,
                                 uint32_t option) {
    int64_t result = 0;
    bool fail = zakhost::injected("ZAK_StartupStampAddImpl", &result);
    if (stamp == nullptr) return 1;
    Json record = record_of("ZAK_StartupStampAddImpl", flag1, flag2, stamp);
    record["option"] = option;
    record["item_count"] = stamp->uiItemCount;
    record["item_data_length"] = stamp->uiItemDataLen;
    record["items"] = take_items(stamp); // taken over even when the store refuses the stamp
    if (fail) return result == 0 ? 1 : static_cast<uint32_t>(result);
    zakhost::log_json("stamp", std::move(record));
    return 0;
}

} // extern "C"
