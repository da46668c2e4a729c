// The configuration database and the component address service of the host device, both read
// from the profile so that a test or a script author describes the boards and components of the
// device they want. The host has one database: the database id of a condition is not checked.
//
//   [cmf]           tables = 45 46              the table ids in the database
//   [cmf_table_N]   class = 0x809A024           the class id of table N
//                   rec1 = 0x01010101,1,1,0,1   records: keys starting with "rec", words separated
//                                               by ',' or blanks, decimal or 0x-hexadecimal; an
//                                               empty value is no record (drops a default)
//   [cmf_pid]       0x01010101 = -1             OS node -> process id (CPI < 0 <= CSI)
//   [dms_cpi]       -1 = 204,0x10CC0001,0x01010101,1      CPI -> one address entry
//   [dms_csi]       5 = 206,...,1;206,...,2               CSI -> entries separated by ';'
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "cmf_db.h"
#include "host.h"

namespace {

using Words = std::vector<uint32_t>;

bool parse_number(const std::string &text, int64_t *value) {
    std::optional<int64_t> parsed = zakhost::parse_int(text);
    if (parsed) *value = *parsed;
    return parsed.has_value();
}

// Words of one record; unparsable words read as 0.
Words parse_words(const std::string &text) {
    Words words;
    std::string item;
    auto flush = [&] {
        if (item.empty()) return;
        int64_t value = 0;
        words.push_back(parse_number(item, &value) ? static_cast<uint32_t>(value) : 0);
        item.clear();
    };
    for (char c : text) {
        if (c == ',' || c == ' ' || c == '\t')
            flush();
        else
            item += c;
    }
    flush();
    return words;
}

bool table_exists(uint32_t tableId) {
    for (uint32_t id : parse_words(zakhost::profile_string("cmf", "tables")))
        if (id == tableId) return true;
    return false;
}

std::vector<Words> table_records(uint32_t tableId) {
    std::vector<Words> records;
    for (const auto &[key, value] : zakhost::profile_section("cmf_table_" + std::to_string(tableId))) {
        if (key.rfind("rec", 0) != 0) continue;
        Words words = parse_words(value);
        if (!words.empty()) records.push_back(std::move(words));
    }
    return records;
}

bool condition_valid(const CMF_DB_COND *cond) {
    if (cond == nullptr || cond->uiKeyNum > CMF_DB_MAX_KEYS) return false;
    for (uint32_t i = 0; i < cond->uiKeyNum; ++i) {
        const CMF_DB_KEY &key = cond->astKey[i];
        if (key.uiFieldId == 0 || (key.uiLen != 1 && key.uiLen != 2 && key.uiLen != 4)) return false;
    }
    return true;
}

bool matches(const Words &record, const CMF_DB_COND *cond) {
    for (uint32_t i = 0; i < cond->uiKeyNum; ++i) {
        const CMF_DB_KEY &key = cond->astKey[i];
        uint32_t mask = key.uiLen == 4 ? 0xFFFFFFFFu : (1u << (8 * key.uiLen)) - 1;
        uint32_t field = key.uiFieldId <= record.size() ? record[key.uiFieldId - 1] : 0;
        if ((field & mask) != (key.uiValue & mask)) return false;
    }
    return true;
}

// The matching records of a table, at most `limit` (0: no limit) and uiMatchNum.
uint32_t select(uint32_t tableId, const CMF_DB_COND *cond, uint32_t limit, std::vector<Words> *out) {
    if (!condition_valid(cond)) return CMF_DB_ERR_PARA;
    if (!table_exists(tableId)) return CMF_DB_ERR_NO_TABLE;
    uint32_t bound = cond->uiMatchNum;
    if (limit != 0 && (bound == 0 || limit < bound)) bound = limit;
    for (Words &record : table_records(tableId)) {
        if (bound != 0 && out->size() >= bound) break;
        if (matches(record, cond)) out->push_back(std::move(record));
    }
    return CMF_DB_OK;
}

void copy_record(const Words &record, void *buffer, uint32_t size) {
    std::memset(buffer, 0, size);
    size_t bytes = record.size() * sizeof(uint32_t);
    std::memcpy(buffer, record.data(), bytes < size ? bytes : size);
}

bool parse_entry(const std::string &text, DMS_COMP_ADDR_INFO *entry) {
    Words words = parse_words(text);
    if (words.empty()) return false;
    words.resize(4, 0);
    *entry = DMS_COMP_ADDR_INFO{words[0], words[1], words[2], words[3]};
    return true;
}

// The value of a key of `section` whose number equals `id` ("0x01010101" and "16843009" both
// name node 16843009).
std::optional<std::string> numbered_value(const char *section, int64_t id) {
    for (const auto &[key, value] : zakhost::profile_section(section)) {
        int64_t number = 0;
        if (parse_number(key, &number) && static_cast<uint32_t>(number) == static_cast<uint32_t>(id))
            return value;
    }
    return std::nullopt;
}

uint32_t injected_code(const char *service) {
    int64_t result = 0;
    if (!zakhost::injected(service, &result)) return CMF_DB_OK;
    return result == 0 ? CMF_DB_ERR_PARA : static_cast<uint32_t>(result);
}

} // namespace

extern "C" {

uint32_t CMF_GetTabIdByClassId(uint32_t classId, uint32_t *tableId) {
    if (uint32_t code = injected_code("CMF_GetTabIdByClassId")) return code;
    if (tableId == nullptr) return CMF_DB_ERR_PARA;
    for (uint32_t id : parse_words(zakhost::profile_string("cmf", "tables"))) {
        int64_t tableClass = 0;
        if (parse_number(zakhost::profile_string("cmf_table_" + std::to_string(id), "class"), &tableClass) &&
            static_cast<uint32_t>(tableClass) == classId) {
            *tableId = id;
            return CMF_DB_OK;
        }
    }
    return CMF_DB_ERR_NO_TABLE;
}

uint32_t CMF_DBGetRecNum(uint32_t tableId, const CMF_DB_COND *cond, uint32_t *count) {
    if (uint32_t code = injected_code("CMF_DBGetRecNum")) return code;
    if (count == nullptr) return CMF_DB_ERR_PARA;
    std::vector<Words> records;
    uint32_t code = select(tableId, cond, 0, &records);
    if (code == CMF_DB_OK) *count = static_cast<uint32_t>(records.size());
    return code;
}

uint32_t CMF_DBSelectFirstRec(uint32_t tableId, const CMF_DB_COND *cond, void *record, uint32_t recordSize) {
    if (uint32_t code = injected_code("CMF_DBSelectFirstRec")) return code;
    if (record == nullptr || recordSize == 0) return CMF_DB_ERR_PARA;
    std::vector<Words> records;
    uint32_t code = select(tableId, cond, 1, &records);
    if (code != CMF_DB_OK) return code;
    if (records.empty()) return CMF_DB_ERR_NOT_FOUND;
    copy_record(records.front(), record, recordSize);
    return CMF_DB_OK;
}

uint32_t CMF_DBSelectAllRec(uint32_t tableId, const CMF_DB_COND *cond, void *records, uint32_t recordSize,
                            uint32_t maxRecords, uint32_t *count) {
    if (uint32_t code = injected_code("CMF_DBSelectAllRec")) return code;
    if (count == nullptr || (maxRecords != 0 && (records == nullptr || recordSize == 0)))
        return CMF_DB_ERR_PARA;
    *count = 0;
    if (maxRecords == 0) return condition_valid(cond) ? CMF_DB_OK : CMF_DB_ERR_PARA;
    std::vector<Words> found;
    uint32_t code = select(tableId, cond, maxRecords, &found);
    if (code != CMF_DB_OK) return code;
    auto *out = static_cast<unsigned char *>(records);
    for (const Words &record : found)
        copy_record(record, out + static_cast<size_t>(recordSize) * (*count)++, recordSize);
    return CMF_DB_OK;
}

uint32_t CMF_GetPIDByOsNode(uint32_t, uint32_t osNode, int32_t *pid) {
    if (uint32_t code = injected_code("CMF_GetPIDByOsNode")) return code;
    if (pid == nullptr) return CMF_DB_ERR_PARA;
    auto value = numbered_value("cmf_pid", osNode);
    int64_t number = 0;
    if (!value || !parse_number(*value, &number)) return CMF_DB_ERR_NOT_FOUND;
    *pid = static_cast<int32_t>(number);
    return CMF_DB_OK;
}

uint32_t DMS_CamCompAddrInfoGetByCpi(int32_t cpi, DMS_COMP_ADDR_INFO *entry) {
    if (uint32_t code = injected_code("DMS_CamCompAddrInfoGetByCpi")) return code;
    if (entry == nullptr) return CMF_DB_ERR_PARA;
    auto value = numbered_value("dms_cpi", cpi);
    if (!value || !parse_entry(*value, entry)) return CMF_DB_ERR_NOT_FOUND;
    return CMF_DB_OK;
}

uint32_t DMS_CamCompAddrInfoGetByCsi(int32_t csi, uint32_t *count, DMS_COMP_ADDR_INFO *entries) {
    if (uint32_t code = injected_code("DMS_CamCompAddrInfoGetByCsi")) return code;
    if (count == nullptr || entries == nullptr) return CMF_DB_ERR_PARA;
    auto value = numbered_value("dms_csi", csi);
    if (!value) return CMF_DB_ERR_NOT_FOUND;
    uint32_t n = 0;
    size_t start = 0;
    while (start <= value->size()) {
        size_t end = value->find(';', start);
        std::string part = value->substr(start, end == std::string::npos ? std::string::npos : end - start);
        DMS_COMP_ADDR_INFO entry{};
        if (parse_entry(part, &entry)) {
            if (n < DMS_CSI_MAX_ENTRIES) entries[n] = entry;
            ++n;
        }
        if (end == std::string::npos) break;
        start = end + 1;
    }
    *count = n;
    return CMF_DB_OK;
}

} // extern "C"
