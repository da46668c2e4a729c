// Every platform log record is kept in memory (for `zakhost`) and, when ZAKHOST_LOG_DIR is set,
// appended to <dir>/<log>.log: text logs one line per record, structured logs one JSON object.
#include <sys/time.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <map>
#include <mutex>
#include <set>

#include <nlohmann/json.hpp>

#include "host.h"
#include "os_env.h"

namespace zakhost {
namespace {

struct LogBook {
    std::vector<std::string> messages;
    std::vector<Json> records;
};

std::mutex g_lock;
std::map<std::string, LogBook, std::less<>> g_logs;
uint64_t g_seq = 0;

std::string iso_now() {
    struct timespec now {};
    ZAK_OsClockGetTime(CLOCK_REALTIME, &now);
    struct tm parts {};
    time_t seconds = now.tv_sec;
    gmtime_r(&seconds, &parts);
    char buf[96];
    std::snprintf(buf, sizeof buf, "%04d-%02d-%02dT%02d:%02d:%02d.%03ldZ", parts.tm_year + 1900,
                  parts.tm_mon + 1, parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec,
                  now.tv_nsec / 1000000);
    return buf;
}

// A message as one line of a text log: a backslash and every control character are escaped, so
// no message can end its record early or forge another.
std::string one_line(const std::string &message) {
    std::string line;
    line.reserve(message.size());
    for (char c : message) {
        auto byte = static_cast<unsigned char>(c);
        if (c == '\\') {
            line += "\\\\";
        } else if (c == '\n') {
            line += "\\n";
        } else if (c == '\r') {
            line += "\\r";
        } else if (c == '\t') {
            line += "\\t";
        } else if (byte < 0x20 || byte == 0x7F) {
            line += "\\x";
            line += "0123456789ABCDEF"[byte >> 4];
            line += "0123456789ABCDEF"[byte & 0xF];
        } else {
            line += c;
        }
    }
    return line;
}

std::string text_line(uint32_t log_id, uint32_t level, const std::string &message) {
    char prefix[40];
    std::snprintf(prefix, sizeof prefix, " 0x%08X L%u ", log_id, level);
    return iso_now() + prefix + one_line(message);
}

std::string errno_text(int error) {
    char buffer[128];
    return strerror_r(error, buffer, sizeof buffer);
}

std::set<std::string> g_unwritable; // log files whose failure was reported since the last clear

void append_file(const char *log, const std::string &line);

// Called with g_lock held.
void add_syslog_locked(std::string message) {
    std::string line = text_line(0, 0, message);
    g_logs["syslog"].messages.push_back(std::move(message));
    append_file("syslog", line);
}

// A log file that cannot be appended to is reported once (until the logs are cleared), so a
// read-only log directory gives one record per file rather than one per record. When the syslog
// file itself fails, the terminal is the one place left to say so.
void append_file(const char *log, const std::string &line) {
    const char *dir = std::getenv("ZAKHOST_LOG_DIR");
    if (dir == nullptr || *dir == '\0') return;
    std::string path = std::string(dir) + "/" + log + ".log";
    int error = 0;
    if (FILE *f = std::fopen(path.c_str(), "a")) {
        if (std::fwrite(line.data(), 1, line.size(), f) != line.size() || std::fputc('\n', f) == EOF)
            error = errno;
        if (std::fclose(f) != 0 && error == 0) error = errno;
    } else {
        error = errno;
    }
    if (error == 0 || !g_unwritable.insert(path).second) return;
    std::string message = "cannot write " + path + ": " + errno_text(error);
    if (std::strcmp(log, "syslog") != 0) return add_syslog_locked(std::move(message));
    std::fprintf(stderr, "zakhost: %s; log records stay in memory only\n", message.c_str());
    g_logs["syslog"].messages.push_back(std::move(message));
}

} // namespace

std::string vformat(const char *format, va_list values) {
    if (format == nullptr) return {};
    va_list copy;
    va_copy(copy, values);
    char small[512];
    int n = std::vsnprintf(small, sizeof small, format, copy);
    va_end(copy);
    if (n < 0) return {};
    if (static_cast<size_t>(n) < sizeof small) return std::string(small, static_cast<size_t>(n));
    std::string big(static_cast<size_t>(n) + 1, '\0');
    std::vsnprintf(big.data(), big.size(), format, values);
    big.resize(static_cast<size_t>(n));
    return big;
}

void log_text(const char *log, uint32_t log_id, uint32_t level, std::string message) {
    if (!message.empty() && message.back() == '\n') message.pop_back();
    std::string line = text_line(log_id, level, message);
    std::lock_guard lock(g_lock);
    g_logs[log].messages.push_back(std::move(message));
    append_file(log, line);
}

std::string json_line(const Json &value) {
    return value.dump(-1, ' ', false, Json::error_handler_t::replace);
}

void push_lua(lua_State *state, const Json &value) {
    switch (value.type()) {
    case Json::value_t::boolean:
        lua_pushboolean(state, value.get<bool>());
        break;
    case Json::value_t::number_integer:
    case Json::value_t::number_unsigned:
        lua_pushinteger(state, value.get<lua_Integer>());
        break;
    case Json::value_t::number_float:
        lua_pushnumber(state, value.get<double>());
        break;
    case Json::value_t::string: {
        const auto &text = value.get_ref<const std::string &>();
        lua_pushlstring(state, text.data(), text.size());
        break;
    }
    case Json::value_t::array:
        lua_createtable(state, static_cast<int>(value.size()), 0);
        for (size_t i = 0; i < value.size(); ++i) {
            push_lua(state, value[i]);
            lua_rawseti(state, -2, static_cast<int>(i + 1));
        }
        break;
    case Json::value_t::object:
        lua_createtable(state, 0, static_cast<int>(value.size()));
        for (const auto &[key, item] : value.items()) {
            push_lua(state, item);
            lua_setfield(state, -2, key.c_str());
        }
        break;
    default:
        lua_pushnil(state);
    }
}

void log_json(const char *log, Json record) {
    std::lock_guard lock(g_lock);
    Json numbered = Json::object();
    numbered["seq"] = ++g_seq;
    for (auto &[key, value] : record.items())
        numbered[key] = std::move(value);
    std::string line = json_line(numbered);
    LogBook &book = g_logs[log];
    book.messages.push_back(line);
    book.records.push_back(std::move(numbered));
    append_file(log, line);
}

void report_write_failure(const std::string &path, int error) {
    std::lock_guard lock(g_lock);
    add_syslog_locked("cannot write " + path + ": " + errno_text(error));
}

std::vector<std::string> log_messages(std::string_view log) {
    std::lock_guard lock(g_lock);
    auto it = g_logs.find(log);
    return it == g_logs.end() ? std::vector<std::string>{} : it->second.messages;
}

std::vector<Json> log_records(std::string_view log) {
    std::lock_guard lock(g_lock);
    auto it = g_logs.find(log);
    return it == g_logs.end() ? std::vector<Json>{} : it->second.records;
}

void log_clear() {
    std::lock_guard lock(g_lock);
    g_logs.clear();
    g_unwritable.clear();
}

} // namespace zakhost
