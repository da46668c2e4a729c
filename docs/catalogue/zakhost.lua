---@meta zakhost
-- Lua language server definitions of the zakhost control module of the host platform (what
-- device-script tests use to steer and observe the sandbox). Installed next to the generated
-- definitions of libqavluacommon; a test keeps it equal to the module's functions.

---The host platform's control module: `local zh = require "zakhost"`.
---@class zakhost
local zakhost = {}

---The messages of one log ("upgrade", "patch", "diag", "base", "syslog", "issu", "cms", "sdm",
---"ha", ...) written since the last `log_clear`, oldest first.
---@param log string
---@return string[] lines
function zakhost.log_lines(log) end

---Forgets every log record, event and stamp held in memory (the files under `<root>/log` stay).
function zakhost.log_clear() end

---The event-log records raised since the last `log_clear`: tables with "seq", "call", "cid",
---"info", "format" and "values".
---@return table[] events
function zakhost.events() end

---The startup-stamp records written since the last `log_clear`.
---@return table[] stamps
function zakhost.stamps() end

---Moves every clock of the host platform forward (never back); returns the total offset.
---@param seconds number
---@return number offset
function zakhost.clock_advance(seconds) end

---The device root as a prefix of absolute device paths: "" in the jail (where the device root is /),
---so that `zakhost.root() .. "/etc/shadow"` names the device's file in and out of the jail.
---@return string root
function zakhost.root() end

---A profile value in force (`<root>/zakhost.ini` or an override), nil when unset.
---@param section string
---@param key string
---@return string? value
function zakhost.profile(section, key) end

---Overrides one profile value in this process from now on; nil removes the override.
---@param section string
---@param key string
---@param value? string
function zakhost.profile_set(section, key, value) end

---Makes the named platform service fail with `result`, after `skip` good calls, `count` times
---(default once); with no argument, clears every injected fault.
---@param service? string
---@param result? integer
---@param skip? integer
---@param count? integer
function zakhost.inject(service, result, skip, count) end

---The platform allocator's live blocks and bytes.
---@return {blocks: integer, bytes: integer} memory
function zakhost.memory() end

---Whether `v` is nil or the null light user data: the handle a failed `luafs_opendir` returns,
---which counts as true in a condition (`if d then` does not catch the failure).
---@param v any
---@return boolean null
function zakhost.isnull(v) end

---Sets (or with no value unsets) an environment variable of the process.
---@param name string
---@param value? string
---@return boolean ok
function zakhost.setenv(name, value) end

---The board resets requested so far (recorded, never acted on); `true` also clears the record.
---@param clear? boolean
---@return integer[] resets
function zakhost.board_resets(clear) end

---Registered descriptors open longer than their time ({fd, path, timeout_ms, age_ms}); with
---`all` true, every registered descriptor.
---@param all? boolean
---@return table[] fds
function zakhost.fd_leaks(all) end

---The image mounts the package manager holds.
---@return string[] mounts
function zakhost.mounts() end

---Sets the patch log level the library reads (records are echoed above 1).
---@param level integer
function zakhost.patch_log_level(level) end

---Installs (true) or removes (false) the patch dialog hook; what it is handed becomes an event
---record with "call" = "PatchDialog".
---@param on boolean
function zakhost.patch_dialog(on) end

return zakhost
