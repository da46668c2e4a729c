// Internal interface of the host platform: the services every host family builds on (sandbox,
// profile, fault injection, log store, clock offset) and the way a family adds functions to the
// `zakhost` control module. Library code never includes this.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <cstdarg>
#include <vector>

#include <nlohmann/json_fwd.hpp>

extern "C" {
#include <lua.h>
}

namespace zakhost {

// ---- Sandbox -------------------------------------------------------------------------------
// The device root R (ZAKHOST_ROOT, default "/"), without a trailing slash ("" for "/").
std::string root();
// R joined with an absolute device path: "/etc/shadow" -> "R/etc/shadow".
std::string in_root(std::string_view absolute_path);
// The platform's common root as a device path; common_root() is R joined with it.
inline constexpr const char *kCommonRoot = "/zakv8/main";
// R/zakv8/main: the platform's common root.
std::string common_root();
// Re-reads the environment (tests that switch ZAKHOST_ROOT in one process).
void reset_environment();

// Creates the standard sandbox layout under `root` (what `qavlua init` does): the directories,
// a sample profile listing every declared key, and what each family's SandboxSeed writes.
// Returns an empty string on success, else what went wrong.
std::string init_sandbox(const std::string &root);
// A family's sample files for new sandboxes; declare at namespace scope:
//     static const zakhost::SandboxSeed kSeed{"zakcfg", &write_sample_zakcfg};
// The function gets the sandbox root and returns an empty string or an error text.
struct SandboxSeed {
    SandboxSeed(const char *name, std::string (*seed)(const std::string &root));
};

// ---- Commands ------------------------------------------------------------------------------
// True in the device jail that qavlua builds (ZAKHOST_JAILED=1 when the host platform loaded).
bool jailed();
// Commands run only in the jail, or where ZAKHOST_ALLOW_HOST_COMMANDS=1 was set at load.
bool host_commands_allowed();
// For tests of both answers in one process.
void allow_host_commands(bool allow);
// Starts argv[0] (searched on PATH) and waits: its exit status, or -1 when it could not run or was
// refused (the refusal is logged to syslog with the reason and the fix).
int run_command(const char *const argv[]);

// ---- XML ---------------------------------------------------------------------------------
// Silences libxml2's error output on this thread while it lives: for readers whose callers get
// the failure as a result code, so the messages would be noise (elsewhere they go to syslog).
class XmlErrorsQuiet {
  public:
    XmlErrorsQuiet();
    ~XmlErrorsQuiet();
    XmlErrorsQuiet(const XmlErrorsQuiet &) = delete;
    XmlErrorsQuiet &operator=(const XmlErrorsQuiet &) = delete;

  private:
    void *generic_, *genericContext_, *structured_, *structuredContext_;
};

// ---- Profile ---------------------------------------------------------------------------------
// Every key the host reads has its default in core/profile_defaults.def, so that
// `zakhost.profile`, the sample profile and the documentation see every key.
// The value in force: the profile file's, else the declared default, else nullopt.
std::optional<std::string> profile_value(std::string_view section, std::string_view key);
std::string profile_string(std::string_view section, std::string_view key);
// A whole text that is one number, decimal (leading zeros stay decimal) or 0x-hexadecimal, with an
// optional sign and surrounding blanks; nullopt for anything else or outside the int64 range.
std::optional<int64_t> parse_int(std::string_view text);
// Decimal or 0x-hexadecimal as parse_int reads it; `fallback` when absent or unparsable.
int64_t profile_int(std::string_view section, std::string_view key, int64_t fallback = 0);
bool profile_bool(std::string_view section, std::string_view key);
// Every declared default: (section, key, value).
std::vector<std::tuple<std::string, std::string, std::string>> profile_defaults();
// Every key of one section in force (file and defaults), in file order then default order.
std::vector<std::pair<std::string, std::string>> profile_section(std::string_view section);
// Sets (or, with nullopt, removes) an in-process override of one key; `zakhost.profile_set`.
void profile_override(std::string_view section, std::string_view key, std::optional<std::string> value);
void apply_profile_settings();
// Persistent state under R (R/zakhost_state.ini): values a second process must see.
std::optional<std::string> state_value(std::string_view section, std::string_view key);
// False when the state file could not be written (reported by report_write_failure).
bool set_state_value(std::string_view section, std::string_view key, std::string_view value);

// ---- Files -----------------------------------------------------------------------------------
// Replaces the whole content of `path` (through a link, keeping an existing file's mode and owner)
// by writing a temporary file beside it and renaming it over: a failed write leaves the old
// content. False, with the failure reported, when any step fails.
bool replace_file(const std::string &path, const std::string &content);

// Removes a tree without following links; true when nothing is left.
bool remove_tree(const std::string &path);
// Copies text into out[size] whole; false when it does not fit.
bool copy_out(const std::string &text, char *out, uint32_t size);
// Creates a directory and its missing parents (mode 0755), as `mkdir -p` does. An empty string
// when `path` is a directory afterwards, else "<the part that failed>: <errno text>".
std::string make_dirs(const std::string &path);

// Writes `length` bytes as 2 * length hexadecimal digits and a NUL into out.
void write_hex(const uint8_t *bytes, size_t length, char *out, bool lowerCase);

// ---- Device paths ----------------------------------------------------------------------------
// A device path is "<storage>:<rest>", where the storage is a key of the profile's [storage]
// section with a non-empty directory and contains neither '/' nor '\\'.
struct DevicePath {
    std::string storage;
    std::string directory; // the storage's directory inside the sandbox (R joined with its value)
    std::string rest;      // everything after the first ':', as written
};
std::optional<DevicePath> split_device_path(std::string_view path);

// ---- Fault injection -------------------------------------------------------------------------
// True when the next call of `service` must fail; `result` receives the injected result.
// Every host service the library calls starts with this check.
bool injected(const char *service, int64_t *result = nullptr);
// The same check for services whose failure is a nonzero code: *code is the injected result, or 1
// when the injection gave 0.
inline bool injected_code(const char *service, uint32_t *code) {
    int64_t result = 0;
    if (!injected(service, &result)) return false;
    *code = result != 0 ? static_cast<uint32_t>(result) : 1;
    return true;
}
void inject(const std::string &service, int64_t result, uint32_t skip, uint32_t count);
void inject_clear();

// ---- Sweep runs ------------------------------------------------------------------------------
// `qavlua sweep` steers each run it starts through the environment, read once:
//   ZAKHOST_RECORD=/path      device path of the file that receives the run's record lines
//   ZAKHOST_FAULT_PLAN=k      the k-th call into an injectable service fails with the service's
//                             general failure (and the record says "call k SERVICE" for each call)
//   ZAKHOST_CUT_AT=k          the run kills itself with SIGKILL at its k-th cut point; 0 only
//                             records every cut point
// Calls and cut points are counted only while armed: from the start of the script to its end.
bool cut_plan_set();
void sweep_arm(bool armed);
// Appends one line (a line feed is added) to the record, written at once so that a killed run
// loses nothing; nothing happens without ZAKHOST_RECORD.
void sweep_record(std::string_view line);
// One cut point: counted, recorded in counting runs, and where the plan says, the power cut.
void cut_point(std::string_view what);
// The library call in progress ("" between calls); cut points of the file layer fall only inside
// one and carry its name.
void cut_context(std::string call);
void cut_point_in_call(std::string_view what);

// ---- Log store -------------------------------------------------------------------------------
// A structured record (event and stamp logs): a JSON object that keeps its fields in the order
// they were set.
using Json = nlohmann::ordered_json;
// The record as one line of JSON. Bytes of a text that are not UTF-8 become U+FFFD, so the line
// stays valid JSON; nothing throws.
std::string json_line(const Json &value);
// Pushes the value as Lua data: objects and arrays as tables, null as nil.
void push_lua(lua_State *state, const Json &value);
// One text record: "<ISO time> 0x%08X L<level> <message>", one trailing line feed removed.
void log_text(const char *log, uint32_t log_id, uint32_t level, std::string message);
// One JSON record ("event", "stamp"); the store assigns "seq".
void log_json(const char *log, Json record);
std::string vformat(const char *format, va_list values);
// Records in the syslog log that `path` could not be written: "cannot write <path>: <errno text>".
// Every host service whose write fails calls it, whether or not its result can carry the failure.
void report_write_failure(const std::string &path, int error);
std::vector<std::string> log_messages(std::string_view log);
std::vector<Json> log_records(std::string_view log);
void log_clear();

// ---- Clocks ----------------------------------------------------------------------------------
// Seconds added to every clock the library or the host reads. Only moves forward.
int64_t clock_offset();
void clock_advance(int64_t seconds);

// ---- Memory --------------------------------------------------------------------------------
// Blocks and bytes of the platform allocator not yet freed.
int64_t live_blocks();
int64_t live_bytes();

// ---- Control module ---------------------------------------------------------------------------
// Adds a function to the `zakhost` Lua module; declare at namespace scope:
//     static const zakhost::ControlFunction kLeaks{"fd_leaks", &lua_fd_leaks};
struct ControlFunction {
    ControlFunction(const char *name, lua_CFunction function);
};
const std::vector<std::pair<const char *, lua_CFunction>> &control_functions();

// The entry function behind a value of a module table made by Script_OpenLib (null for any other
// value); for tests that check which function a script name reaches.
lua_CFunction entry_function(lua_State *state, int index);

} // namespace zakhost
