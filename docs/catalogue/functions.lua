-- The catalogue of the script functions of libqavluacommon: one record per registered script
-- name. The build reads it to generate the Lua language server definitions and the Markdown
-- reference, and a test checks it against the registry (same names, same entry functions).
--
-- Record fields:
--   name     the script name (libqavluacommon.<name>)
--   entry    the exported entry function the name calls
--   topic    an id of the `topics` list below (its area is the topic's)
--   args     the arguments in stack order: "name:type, name:type"; "" for none. A type is a Lua
--            language server type without commas ("integer", "string", "table", "boolean",
--            "number", "lightuserdata", "any", "string|nil"); a trailing "?" marks an argument that
--            may be left out; "...:type" takes any number of arguments.
--   results  the results in order, same form; a result that only some paths return is marked "?"
--   codes    result codes: each "CODE meaning", CODE as the script sees it (decimal or 0x hex)
--   summary  the behaviour in one sentence
-- Optional fields:
--   badcount     the first result of a call with an argument count the function refuses: a number,
--                "" (an empty text) or "count" (the number of arguments given); absent when the
--                function does not count its arguments (a missing one then reads as nil)
--   ignoresextra true when only too few arguments are refused and extra ones are ignored
--   maxargs      the most arguments a function with "..." takes
--   shapes       for every table argument or result, by name: {shape, one-line example}
--   profile      the facts of the host's profile (zakhost.ini) that change the function's results
--   logs         (set at the end of this file) the logs the function writes to, failures included
local catalogue = {}

-- The areas are the library's folders under src/ (and the folders of tests/lua and the pages of
-- docs/ of the same names); topics group the functions of an area in the reference.
catalogue.areas = {
    {id = "fileapi", title = "Script file handles"},
    {id = "fs", title = "File-system operations"},
    {id = "pkg", title = "Packages, patches, version configuration and risk checks"},
    {id = "state", title = "Shared state: locks, tables, registers and port IDs"},
    {id = "time", title = "Time services"},
    {id = "event", title = "Traps, event logs and script logs"},
    {id = "crypt", title = "Ciphers, passwords and master key"},
    {id = "device", title = "Node, board, process and file information"},
}
catalogue.topics = {
    {id = "fileapi", area = "fileapi", title = "Script file handles"},
    {id = "fs", area = "fs", title = "File-system operations"},
    {id = "pkg", area = "pkg", title = "Package and patch queries"},
    {id = "vercfg", area = "pkg", title = "Version configuration and package checks"},
    {id = "risk", area = "pkg", title = "Risk-check reports and version-file consistency"},
    {id = "port", area = "state", title = "Port-ID assignment"},
    {id = "locks", area = "state", title = "Named locks and lock-info tables"},
    {id = "records", area = "state", title = "Patch record, TPM and NTP tables"},
    {id = "registers", area = "state", title = "Upgrade-state registers"},
    {id = "upgrade-lock", area = "state", title = "Upgrade lock, software-management and HA vnode locks"},
    {id = "policy", area = "state", title = "File access policy"},
    {id = "time", area = "time", title = "Time services"},
    {id = "events", area = "event", title = "Traps, event logs and script logs"},
    {id = "crypt", area = "crypt", title = "Ciphers, passwords and master key"},
    {id = "device", area = "device", title = "Node, board and file information"},
    {id = "process", area = "device", title = "Process and board control"},
    {id = "reports", area = "device", title = "Report notices"},
}

local F = {}
catalogue.functions = F
-- A record, with the fields of `more` added (the family helpers below pass them through).
local function fn(record, more)
    for key, value in pairs(more or {}) do record[key] = value end
    F[#F + 1] = record
end

-- Table shapes shared by several functions: {shape, example}.
local function shape(text, example) return {text, example} end
local ENTITY_KEYS = "`EntityId` (integer), `Entity`, `Version`, `CurVersion`, `CompVersion`, `Type`, `UpgradeMode`, " ..
    "`IncompatibleUpgradeMode`, `CompatibilityVer`, `Section`, `Cpu` (texts, each only when set), `Compat`, " ..
    "`ChangeFlag` (integers) and `File` (array of file names, when the entity has files)"
local ITEMS = "each an array of items `{fid = integer, value = integer|string}` (item k carries fid k; " ..
    "a positional `{1, v}` is not an item)"
local TIME = shape("`{year, month, date, hour, minute, second, week, millSec}`, all integers (`week` 0 = Sunday)",
                   "{year = 2024, month = 5, date = 6, hour = 7, minute = 8, second = 9, week = 1, millSec = 0}")
local ZONE = shape("`{timeZoneName = string (at most 32), option = integer, lrId = integer, timeZoneOffset = " ..
                   "{hour, minute, second}}`", "{timeZoneName = \"CST\", option = 0, lrId = 0, timeZoneOffset = {hour = 8, minute = 0, second = 0}}")
local DST = shape("`{dstName = string, type, startWeekNum, startWeekDay, startMonth, endWeekNum, endWeekDay, endMonth, " ..
                  "startYear, endYear, startDay, endDay, lrId, RepeatMode = integer, isDstEnabled = boolean, " ..
                  "startTime, endTime = {hour, minute, second}, startDate, endDate = {year, month, date}, " ..
                  "dstOffset = {hour, minute}, repeatStartDate, repeatEndDate = {month, date}}`; every plain key is " ..
                  "required (else 0x801707), a missing sub-table reads as zeros",
                  "{dstName = \"none\", type = 0, startWeekNum = 0, startWeekDay = 0, startMonth = 0, endWeekNum = 0, " ..
                  "endWeekDay = 0, endMonth = 0, startYear = 0, endYear = 0, startDay = 0, endDay = 0, lrId = 0, " ..
                  "RepeatMode = 0, isDstEnabled = false}")

-- Script file handles --------------------------------------------------------------------------
local BADARG = "-1048932 bad argument count or type, unknown mode or origin (0xFFEFFE9C)"
local FILEERR = "<0 platform file-layer error, passed through"
local FILECOUNT = {badcount = -1048932}
fn({name = "qav_spt_fopen", entry = "QAV_SPT_Fopen", topic = "fileapi",
   args = "fsnumber:integer, path:string, mode:string", results = "fd:integer, handle:integer",
   codes = {">=0 file descriptor", BADARG, FILEERR},
   summary = "Opens a file with mode \"r\", \"w\", \"a\", \"r+\", \"w+\" or \"a+\" (created 0640) and returns the descriptor and the access handle of file system fsnumber to pass to the other file calls."}, FILECOUNT)
fn({name = "qav_spt_fread", entry = "QAV_SPT_Fread", topic = "fileapi",
   args = "handle:integer, fd:integer, total:integer, offset:integer",
   results = "count:integer, last:boolean|nil, data:string|nil",
   codes = {">=0 bytes read", BADARG, FILEERR},
   summary = "Reads the next block of at most 1020 bytes (total minus offset) and tells whether it is the last block of the expected total."}, FILECOUNT)
fn({name = "qav_spt_readnum", entry = "QAV_SPT_FreadNum", topic = "fileapi",
   args = "handle:integer, fd:integer", results = "count:integer, digits:string|nil",
   codes = {">=0 number of digits", BADARG, FILEERR},
   summary = "Reads a run of decimal digits (at most 512) byte by byte and seeks back over the non-digit that ended it."}, FILECOUNT)
fn({name = "qav_spt_readline", entry = "QAV_SPT_FReadLine", topic = "fileapi",
   args = "handle:integer, fd:integer", results = "count:integer, complete:boolean|nil, line:string|nil",
   codes = {">=0 bytes consumed (line feed included)", BADARG, FILEERR},
   summary = "Reads one line of at most 1020 bytes without its line end (a CR before the LF is dropped); complete is false when the line continues."}, FILECOUNT)
fn({name = "qav_spt_seek", entry = "QAV_SPT_Fseek", topic = "fileapi",
   args = "handle:integer, fd:integer, origin:string, offset:integer", results = "position:integer",
   codes = {">=0 new offset", BADARG, FILEERR},
   summary = "Moves the file position relative to \"set\", \"cur\" or \"end\"."}, FILECOUNT)
fn({name = "qav_spt_fwrite", entry = "QAV_SPT_Fwrite", topic = "fileapi",
   args = "handle:integer, fd:integer, data:string", results = "count:integer",
   codes = {">=0 bytes written", BADARG, FILEERR},
   summary = "Writes the data, embedded zero bytes included."}, FILECOUNT)
fn({name = "qav_spt_flush", entry = "QAV_SPT_FSync", topic = "fileapi",
   args = "handle:integer, fd:integer", results = "result:integer",
   codes = {"0 flushed", BADARG, FILEERR}, summary = "Flushes the file to its storage."}, FILECOUNT)
fn({name = "qav_spt_fclose", entry = "QAV_SPT_Fclose", topic = "fileapi",
   args = "handle:integer, fd:integer", results = "result:integer",
   codes = {"0 closed", BADARG, FILEERR}, summary = "Closes the descriptor; the script must not use it afterwards."}, FILECOUNT)

-- File-system operations -----------------------------------------------------------------------
local FSCOUNT = {badcount = -2}
fn({name = "luafs_rm", entry = "l_fs_rm", topic = "fs", args = "path:string, flags:integer",
   results = "code:integer",
   codes = {"0 removed (also for a last component \".\" or \"..\", which is refused)", "-1 removal failed",
            "-2 wrong argument count", "-3 path not a string", "-4 out of memory"},
   summary = "Removes a file, or a directory tree with flag 0x2 (recursive); flag 0x8 (force) accepts a missing path and skips the write-access check."}, FSCOUNT)
fn({name = "luafs_cp", entry = "l_fs_cp", topic = "fs", args = "source:string, destination:string, flags:integer",
   results = "code:integer",
   codes = {"0 copied", "-1 copy failed", "-2 wrong argument count", "-3 a path is not a string",
            "-4 out of memory (source)", "-5 out of memory (destination)"},
   summary = "Copies a file, link, special file or directory tree under the copy flags: 0x2 recursive, 0x4 keep times, owner and mode, 0x10/0x20 follow links given / everywhere, 0x40/0x80 make a symbolic / hard link instead."}, FSCOUNT)
fn({name = "luafs_mv", entry = "l_fs_mv", topic = "fs", args = "source:string, destination:string, flags:integer",
   results = "code:integer",
   codes = {"0 moved", "1 move failed", "-1 the destination cannot be examined",
            "-2 wrong argument count or a path not a string", "-3 out of memory (source)",
            "-4 out of memory (destination)"},
   summary = "Moves a file or directory tree by rename, or by copy and remove across file systems; flag 0x1 (force) overwrites without checking write access."}, FSCOUNT)
fn({name = "luafs_mkdir", entry = "l_fs_mkdir", topic = "fs", args = "path:string, mode:integer, flags:integer",
   results = "code:integer",
   codes = {"0 created", "-1 creation failed", "0x40022B the file layer ran out of memory", "-2 wrong argument count",
            "-3 path not a string", "-4 out of memory", "-5 mode greater than 777"},
   summary = "Creates a directory (with flag 0x2 every missing parent too) and gives it the permission mode (493 = 0755; -1 leaves it as created)."}, FSCOUNT)
local NULLDIR = "A failed open returns the null light user data, which counts as true in Lua (`if dir then` does not catch it): " ..
    "compare it with another null handle (`dir == libqavluacommon.luafs_opendir(\"\")`) or, in a test, use `zakhost.isnull(dir)`."
fn{name = "luafs_opendir", entry = "l_open_dir", topic = "fs", args = "path:string",
   results = "dir:lightuserdata", codes = {"null light user data: the directory could not be opened (\"opendir's return null!\" in the upgrade log)"},
   summary = "Opens a directory for listing and returns its handle. " .. NULLDIR}
fn{name = "luafs_readdir", entry = "l_read_dir", topic = "fs", args = "dir:lightuserdata",
   results = "code:integer, name:string?", codes = {"0 next entry returned", "-1 end of directory or null handle"},
   summary = "Returns the next entry name of an open directory, \".\" and \"..\" included."}
fn{name = "luafs_closedir", entry = "l_close_dir", topic = "fs", args = "dir:lightuserdata",
   results = "result:integer", codes = {"0 closed (or null handle)"},
   summary = "Closes a directory handle from luafs_opendir."}
fn{name = "luafs_isdir", entry = "l_is_dir", topic = "fs", args = "path:string", results = "isdir:boolean",
   codes = {}, summary = "Tells whether the path (links followed) is a directory."}
fn{name = "lua_getosnodeid", entry = "l_get_osNodeId", topic = "fs", args = "", results = "node:integer",
   codes = {}, summary = "Returns the node id of the operating system instance running the script.",
   profile = {"`[device] node_id` is the answer (default 0x01010101)"}}

-- Package and patch queries --------------------------------------------------------------------
local ENTITIES = shape("array of entity tables: " .. ENTITY_KEYS, "{{EntityId = 1, Entity = \"rib\", Version = \"1.0\", Compat = 0, ChangeFlag = 1}}")
local ENTITYDB = "`[pkgmgr] entity_db` names the entity database file (`qavpkg entitydb` writes it)"
fn({name = "issu", entry = "l_issu_compare", topic = "pkg", args = "running:string, candidate:string",
   results = "code:integer, differences:table?, groups:table?",
   codes = {"0 compared", "-1 missing path or package object", "<0 load failure of a package description", "other: the comparison's failure code"},
   summary = "Compares the package descriptions of the running package and a candidate for an in-service upgrade and returns the differing entities (each with its \"Required\" entities) and the entity groups to upgrade together.",
   shapes = {differences = shape("array of the differing entities' tables (" .. ENTITY_KEYS .. "), `ChangeFlag` 1, 2 or 3 by the list the entity came from, each with `Required` = array of the entity tables that require it",
                                 "{{EntityId = 1, Entity = \"rib\", Version = \"1.1\", Compat = 0, ChangeFlag = 1, Required = {{EntityId = 2, Entity = \"ospf\", Compat = 0, ChangeFlag = 0}}}}"),
             groups = shape("array of groups, each an array of entity tables", "{{{EntityId = 1, Entity = \"rib\", Compat = 0, ChangeFlag = 0}}}")}},
   {badcount = -1, ignoresextra = true})
fn{name = "rpm_whorequire", entry = "l_whorequire", topic = "pkg", args = "...:string", results = "entities:table?",
   codes = {"no result: the entity database could not be loaded"},
   summary = "For each entity name, returns the entity table with the entities that require it, keyed by name.",
   shapes = {entities = shape("keyed by entity name: the entity table with `Required` = array of the entity tables that require it",
                              "{rib = {EntityId = 1, Entity = \"rib\", Compat = 0, ChangeFlag = 0, Required = {{EntityId = 2, Entity = \"ospf\", Compat = 0, ChangeFlag = 0}}}}")},
   profile = {ENTITYDB}}
fn{name = "rpm_depend", entry = "l_dep_depend", topic = "pkg", args = "...:string", results = "dependencies:table?",
   codes = {"no result: the entity database could not be loaded"},
   summary = "For each entity name, returns {matched = entity tables, mismatched = relation texts} keyed by name.",
   shapes = {dependencies = shape("keyed by entity name: `{matched = array of entity tables, mismatched = array of relation texts}`",
                                  "{ospf = {matched = {{EntityId = 1, Entity = \"rib\", Compat = 0, ChangeFlag = 0}}, mismatched = {\"core >= 2.0\"}}}")},
   profile = {ENTITYDB}}
fn{name = "rpm_listcpt", entry = "l_list_cpt", topic = "pkg", args = "...:string", results = "entities:table?",
   codes = {"no result: the entity database could not be loaded"},
   summary = "Returns the entity tables of the named entities of the running package; unknown names are skipped.",
   shapes = {entities = ENTITIES}, profile = {ENTITYDB}}
local PKGINFO = {badcount = -1}
fn({name = "rpm_getpkginfo", entry = "l_get_pkginfo", topic = "pkg", args = "file:string?",
   results = "code:integer, info:table?", codes = {"0 read", "-1 bad arguments", "-2 information file unreadable"},
   summary = "Reads a package information file (default: the running package's rpg.rinfo) and returns the fields present (\"Name\", \"Version\", \"Type\", \"Product\", \"Copyright\", \"Origin\", \"CustomPatchVersionPattern\").",
   shapes = {info = shape("`{Name, Version, Type, Product, Copyright, Origin, CustomPatchVersionPattern}`, texts, each only when present in the file",
                          "{Name = \"rpgA\", Version = \"V100R001\", Type = \"program\"}")}}, PKGINFO)
fn({name = "rpm_getcopyrightinfo", entry = "l_get_copyrightinfo", topic = "pkg", args = "file:string?",
   results = "code:integer, copyright:string?", codes = {"0 read", "-1 bad arguments", "-2 information file unreadable", "-3 no such field"},
   summary = "Returns the copyright text of a package information file."}, PKGINFO)
fn({name = "rpm_getorigininfo", entry = "l_get_origininfo", topic = "pkg", args = "file:string?",
   results = "code:integer, origin:string?", codes = {"0 read", "-1 bad arguments", "-2 information file unreadable", "-3 no such field"},
   summary = "Returns the origin text of a package information file."}, PKGINFO)
fn{name = "rpm_getrealpatfile", entry = "l_get_realpat", topic = "pkg", args = "patch:string",
   results = "code:integer, filename:string?, fullpath:string?", codes = {"0 found", "-1 failure"},
   summary = "Returns the file name and the full path that the package manager finds for a patch name (the name, then the name with \".pat\", in the patch directory).",
   profile = {"`[patch] dir` is where patches are looked for (default /zakv8/main/home/patch)"}}
fn{name = "pat_getpkgboardtype", entry = "l_get_pat_board_type", topic = "pkg", args = "package:string",
   results = "boardtype:integer", codes = {}, summary = "Returns the board type of a patch package."}
local PATCOUNT = {badcount = 5005, ignoresextra = true}
fn({name = "pat_gethpglistinpat", entry = "l_get_pat_hpg_list", topic = "pkg", args = "package:string",
   results = "code:integer, descriptors:table?", codes = {"0 read", "other: the header read's failure code"},
   summary = "Lists the hot-patch descriptors (\"SubFileVer\", \"PatchType\", \"BoardType\", \"Offset\", \"Length\") of a patch package header.",
   shapes = {descriptors = shape("array of `{SubFileVer = string, PatchType, BoardType, Offset, Length = integer}` (the descriptors of patch type 171)",
                                 "{{SubFileVer = \"SUB-A\", PatchType = 171, BoardType = 0x2001, Offset = 6480, Length = 100}}")}}, PATCOUNT)
fn({name = "pat_getpatpkghead", entry = "l_get_pat_pkg_head", topic = "pkg", args = "package:string",
   results = "code:integer, header:table?", codes = {"0 read", "0xFFFFFFFF out of memory", "other: the header read's failure code"},
   summary = "Returns a patch package's header: \"acRpgName\", \"acMainVer\", \"acPatchVer\", \"uiPatchType\", \"uiPatchNum\", \"uiFileLen\", \"uiCmsInfo\".",
   shapes = {header = shape("`{acRpgName = string (only for a name longer than 9), acMainVer, acPatchVer = string, uiPatchType, uiPatchNum, uiFileLen, uiCmsInfo = integer}`",
                            "{acRpgName = \"MAINRPG\", acMainVer = \"V1.00.10\", acPatchVer = \"P003\", uiPatchType = 1, uiPatchNum = 1, uiFileLen = 6580, uiCmsInfo = 0}")}}, PATCOUNT)
fn{name = "pat_calcpatpkgmd5", entry = "l_calc_pat_md5", topic = "pkg", args = "package:string",
   results = "code:integer, digest:string?", codes = {"0 computed", "-1 failure"},
   summary = "Computes the MD5 digest of a patch package."}
fn{name = "pat_startuppatchvalid", entry = "l_verify_startuppatch", topic = "pkg", args = "patch:string",
   results = "code:integer?, value:integer?",
   codes = {"0 valid; value 1 patch file, 0 header read, 2 header result 5006", "4 file missing", "5001 out of memory", "5005 header unreadable", "no result: no path"},
   summary = "Tells whether a startup patch file is usable."}
fn{name = "pat_check_inrpkg", entry = "l_check_pat_inrpkg", topic = "pkg", args = "package:string, inner:string",
   results = "code:integer, packagenumber:integer?, innernumber:integer?, samebase:boolean?, contains:boolean?", codes = {"0 checked", "other: the patch service's code"},
   summary = "Runs the patch service's package-in-package check on two patch packages: their patch numbers, whether their names match (samebase) and whether every hot sub-file of the inner one is in the package (contains)."}
fn({name = "rpm_getpatcustomver", entry = "l_get_pat_customver", topic = "pkg", args = "patch:string",
   results = "code:integer, version:string?",
   codes = {"0 found", "-1 no name or no rpg.rinfo", "-2 no custom pattern", "-3 pattern rejected", "-4 version not formed"},
   summary = "Forms a patch's custom version from the pattern of the current package's rpg.rinfo."})
fn({name = "rpm_getfilemd5val", entry = "l_get_file_md5", topic = "pkg", args = "file:string",
   results = "code:integer, digest:string?", codes = {"0 computed", "-1 bad arguments", "-2 file unreadable", "-3 digest failed"},
   summary = "Returns the MD5 digest of a file as hex text."}, PKGINFO)
fn({name = "rpm_getfilemd5val_ext", entry = "l_get_file_md5_ext", topic = "pkg", args = "file:string, offset:integer, length:integer",
   results = "code:integer, digest:string?", codes = {"0 computed", "-1 bad arguments", "-2 file unreadable", "-3 range outside the file"},
   summary = "Returns the MD5 digest of a byte range of a file (length 0: to the end)."}, PKGINFO)
fn{name = "rpm_issulog", entry = "l_issu_log", topic = "pkg", args = "level:integer, text:string",
   results = "below:any?", codes = {"no result when written", "text missing: nothing pushed and one result declared (the value below comes back)"},
   summary = "Writes a line to the ISSU log at the given level."}
fn{name = "pat_GetCrlPath", entry = "l_Pat_GetCrlPath", topic = "pkg", args = "",
   results = "code:integer, path:string?", codes = {"0 found (no path when the platform has no CRL service)", "-1 failure"},
   summary = "Returns the root path of the certificate revocation list files.",
   profile = {"`[cms] crl_service` 0: the platform offers no CRL service, so no path comes back", "`[cms] crl_root` is the path answered (default /zakv8/main/home/crl)"}}
fn{name = "pat_GetHardtypeOfColdPatHardRst", entry = "l_get_hardtypeOfColdPatHardRst", topic = "pkg",
   args = "patch:string, rpgname:string, rpgversion:string", results = "code:integer, hardtypes:table?",
   codes = {"0 found", "-1 a text missing or the patch service failed"},
   summary = "Lists the hardware types whose boards need a hard reset for a cold patch of the given RPG.",
   shapes = {hardtypes = shape("array of board hardware types (integers), each once", "{0x2001, 0x2002}")}}

-- Port-ID assignment ---------------------------------------------------------------------------
fn({name = "qav_luaAssignPortID", entry = "QAV_LuaAssignPortID", topic = "port", args = "osnode:integer",
   results = "status:integer, port:integer", codes = {"0 assigned", "1 out of memory (port 41000)", "2 bad argument, with port 0"},
   summary = "Hands out the next port of an OS node, rotating through 41004 to 41128."}, {badcount = 2})
fn({name = "qav_luaSetCurPortID", entry = "QAV_LuaSetCurPortID", topic = "port", args = "osnode:integer, position:integer",
   results = "status:integer", codes = {"0 set", "2 bad arguments or position 0", "0xFFFFFFFF out of memory"},
   summary = "Moves an OS node's cursor to the low byte of the value (4 when outside 4 to 128)."}, {badcount = 2})

-- Named locks and lock-info tables -------------------------------------------------------------
-- Each named lock is a counting semaphore taken in 5000 ms slices: a waiter breaks a lock whose
-- holder keeps it past a slice, and never gives up by itself.
local function lockPair(lockName, lockEntry, unlockName, unlockEntry, what)
    fn{name = lockName, entry = lockEntry, topic = "locks", args = "", results = "status:integer",
       codes = {"0 taken", "0xFFFFFFFF the lock was never initialised"},
       summary = "Takes the " .. what .. ", waiting as long as it takes (a holder past 5 s loses it)."}
    fn{name = unlockName, entry = unlockEntry, topic = "locks", args = "", results = "status:integer",
       codes = {"0 released (also when it was free)"}, summary = "Releases the " .. what .. "."}
end
lockPair("qav_pat_lock_Lock", "QAV_luaPatchLock_lock", "qav_pat_lock_Unlock", "QAV_luaPatchLock_unlock", "patch lock")
lockPair("qav_download_lock_Lock", "QAV_LuaDownLoad_lock", "qav_download_lock_Unlock", "QAV_LuaDownLoad_unlock", "download lock")
lockPair("qav_nv_patch_lock_Lock", "QAV_LuaNvPat_lock", "qav_nv_patch_lock_Unlock", "QAV_LuaNvPat_unlock", "NV patch lock")
lockPair("qav_pat_dbg_lock_Lock", "QAV_LuaPatDbg_lock", "qav_pat_dbg_lock_Unlock", "QAV_LuaPatDbg_unlock", "patch-debug lock")
lockPair("qav_collectlog_lock_Lock", "QAV_luaCollectLogLock_lock", "qav_collectlog_lock_Unlock", "QAV_luaCollectLogLock_unlock", "collect-log lock")
lockPair("qav_luaPatchErrTblLock", "QAV_luaPatchErrTblLock_lock", "qav_luaPatchErrTblUnlock", "QAV_luaPatchErrTblLock_unlock", "patch error table lock")
lockPair("qav_luaFlhSyncTblLock", "QAV_luaFlhSyncTblLock_lock", "qav_luaFlhSyncTblUnlock", "QAV_luaFlhSyncTblLock_unlock", "flash sync table lock")
lockPair("qav_luaLoadPatchTblLock", "QAV_luaLoadPatchTblLock_lock", "qav_luaLoadPatchTblUnlock", "QAV_luaLoadPatchTblLock_unlock", "load-patch table lock")
lockPair("qav_ntp_unicast_Lock", "QAV_NtpGetUCastLock", "qav_ntp_unicast_Unlock", "QAV_NtpGetUCastUnlock", "NTP unicast table lock")
lockPair("qav_tpm_report_table_lock", "QAV_TpmReportTableLock", "qav_tpm_report_table_unlock", "QAV_TpmReportTableUnlock", "TPM report table lock")
lockPair("qav_tpm_status_table_lock", "QAV_TpmStatusTableLock", "qav_tpm_status_table_unlock", "QAV_TpmStatusTableUnlock", "TPM status table lock")
fn{name = "qav_crlLock_lock", entry = "QAV_luaCrlLock_lock", topic = "locks", args = "", results = "status:integer",
   codes = {"0 taken", "0xFFFFFFFF the lock could not be created"},
   summary = "Creates the certificate revocation list lock on first use and takes it, logging to the upgrade log."}
fn{name = "qav_crlLock_unlock", entry = "QAV_luaCrlLock_unlock", topic = "locks", args = "", results = "status:integer",
   codes = {"0 released", "0xFFFFFFFF the lock was never created"},
   summary = "Releases the certificate revocation list lock."}

local function lockInit(name, entry, sema, extra)
    fn{name = name, entry = entry, topic = "locks", args = "", results = "status:integer",
       codes = {"0 initialised", "0xFFFFFFFF the semaphore (or buffer) could not be created"},
       summary = "Creates the lock's mutex and its semaphore \"" .. sema .. "\" and clears its lock-info" .. (extra or "") .. "."}
end
lockInit("qav_pat_lock_init", "QAV_PatLockInit", "patlocksema", " (with a 512-byte traceback buffer)")
lockInit("qav_download_lock_init", "QAV_DownLoadLockInit", "downloadlocksema", "; a second call makes a new semaphore")
lockInit("qav_nv_patch_lock_init", "QAV_NvPatLockInit", "nvpatlocksema", "; a second call makes a new semaphore")
lockInit("qav_pat_dbg_lock_init", "QAV_PatDbgLockInit", "patdbglocksema", "; does nothing once initialised")
lockInit("qav_collectlog_lock_init", "QAV_CollectLogLockInit", "collectloglocksema", "")
fn{name = "qav_luaTblInit", entry = "QAV_LuaTableInit", topic = "locks", args = "", results = "below:any, status:integer?",
   codes = {"success: two results declared while one is pushed, so the value below comes first and then 0 (kept as it is)", "0xFFFFFFFF alone: one table failed"},
   summary = "Initialises the patch error, flash sync and load-patch table locks, the download, NV patch and patch-debug locks and the NTP unicast table, stopping at the first failure."}
fn{name = "qav_SU_luaTblInit", entry = "QAV_SU_LuaTableInit", topic = "locks", args = "", results = "",
   codes = {}, summary = "Prepares the except-file lock and the fault-board table once; returns nothing."}

local function lockDestroy(name, entry, what)
    fn{name = name, entry = entry, topic = "locks", args = "", results = "status:integer", codes = {"0 always"},
       summary = "Forgets the " .. what .. "'s lock-info (the lock itself stays)."}
end
lockDestroy("qav_pat_lock_destroy", "QAV_PatLockDestroy", "patch lock")
lockDestroy("qav_download_lock_destroy", "QAV_DownloadLockDestroy", "download lock")
lockDestroy("qav_nv_patch_lock_destroy", "QAV_NvPatLockDestroy", "NV patch lock")
lockDestroy("qav_pat_dbg_lock_destroy", "QAV_PatDbgLockDestroy", "patch-debug lock")
lockDestroy("qav_collectlog_lock_destroy", "QAV_CollectLogLockDestroy", "collect-log lock")

fn{name = "qav_pat_lock_init_flag", entry = "QAV_QueryPatLockInitFlag", topic = "locks", args = "",
   results = "status:integer, initflag:integer, autoload:integer", codes = {"0 always"},
   summary = "Returns whether the patch lock was initialised and its auto-load marker."}
local function initFlag(name, entry, what)
    fn{name = name, entry = entry, topic = "locks", args = "", results = "status:integer, initflag:integer",
       codes = {"0 always"}, summary = "Returns whether the " .. what .. " was initialised (1) or not (0)."}
end
initFlag("qav_download_lock_init_flag", "QAV_QueryDownloadLockInitFlag", "download lock")
initFlag("qav_nv_patch_lock_init_flag", "QAV_QueryNvPatLockInitFlag", "NV patch lock")
initFlag("qav_pat_dbg_lock_init_flag", "QAV_QueryPatDbgLockInitFlag", "patch-debug lock")
initFlag("qav_collectlog_lock_init_flag", "QAV_QueryCollectLogLockInitFlag", "collect-log lock")
fn{name = "qav_pat_autoload_lock_init", entry = "QAV_PatAutoLoadLockInit", topic = "locks", args = "",
   results = "status:integer", codes = {"0 always"}, summary = "Clears the patch auto-load marker (a flag, not a lock)."}
fn{name = "qav_pat_set_autoload_lock", entry = "QAV_PatSetLoadLock", topic = "locks", args = "",
   results = "status:integer", codes = {"0 always"}, summary = "Sets the patch auto-load marker to 1."}

local LOCKINFO = shape("`{sessionId = integer, startTime = integer}`", "{sessionId = 12, startTime = 3600}")
local PATLOCKINFO = shape("`{sessionId = integer, startTime = integer, traceback = string}`",
                          "{sessionId = 12, startTime = 3600, traceback = \"3600\"}")
local INFOCOUNT = {badcount = 0xFFFFFFFF}
local function lockInfo(qname, qentry, sname, sentry, what)
    fn({name = qname, entry = qentry, topic = "locks", args = "info:table", results = "status:integer",
        codes = {"0 stored into the table", "0xFFFFFFFF not exactly one argument"},
        summary = "Stores the " .. what .. "'s \"sessionId\" and \"startTime\" into the given table.",
        shapes = {info = LOCKINFO}}, INFOCOUNT)
    fn({name = sname, entry = sentry, topic = "locks", args = "info:table", results = "status:integer",
        codes = {"0 stored", "0xFFFFFFFF not exactly one argument"},
        summary = "Sets the " .. what .. "'s lock-info from the table's \"sessionId\" and \"startTime\" (hold the lock while doing so).",
        shapes = {info = LOCKINFO}}, INFOCOUNT)
end
lockInfo("qav_query_download_lock_info", "QAV_QueryDownLoadLockInfo", "qav_set_download_lock_info", "QAV_SetDownloadLockInfo", "download lock")
lockInfo("qav_query_nv_patch_lock_info", "QAV_QueryNvPatLockInfo", "qav_set_nv_patch_lock_info", "QAV_SetNvPatLockInfo", "NV patch lock")
lockInfo("qav_query_pat_dbg_lock_info", "QAV_QueryPatDbgLockInfo", "qav_set_pat_dbg_lock_info", "QAV_SetPatDbgLockInfo", "patch-debug lock")
fn({name = "qav_query_pat_lock_info", entry = "QAV_QueryPatLockInfo", topic = "locks", args = "info:table",
   results = "status:integer", codes = {"0 stored into the table", "0xFFFFFFFF not one argument, or no lock-info buffer"},
   summary = "Stores the patch lock's \"sessionId\", \"startTime\" and \"traceback\" into the given table.",
   shapes = {info = PATLOCKINFO}}, INFOCOUNT)
fn({name = "qav_set_pat_lock_info", entry = "QAV_SetPatLockInfo", topic = "locks", args = "info:table",
   results = "status:integer", codes = {"0 stored", "0xFFFFFFFF not one argument, or no lock-info buffer (qav_pat_lock_init makes it)"},
   summary = "Sets the patch lock's \"sessionId\" and \"startTime\"; the stored traceback is the text of the startTime value, not the \"traceback\" field (kept as it is).",
   shapes = {info = PATLOCKINFO}}, INFOCOUNT)
fn{name = "qav_query_collectlog_lock_info", entry = "QAV_QueryCollectLogLockInfo", topic = "locks", args = "",
   results = "status:integer, info:integer", codes = {"0 always"}, summary = "Returns the collect-log lock's info word."}
fn({name = "qav_set_collectlogt_lock_info", entry = "QAV_SetCollectLogLockInfo", topic = "locks", args = "info:integer",
   results = "status:integer", codes = {"0 stored", "0xFFFFFFFF not exactly one argument"},
   summary = "Sets the collect-log lock's info word."}, INFOCOUNT)

-- Patch record, TPM and NTP tables -------------------------------------------------------------
-- One item array `{{fid = 1, value = v1}, {fid = 2, value = v2}, ...}` of the given values, as
-- example text.
local function itemsExample(values)
    local items = {}
    for k, v in ipairs(values) do items[k] = ("{fid = %d, value = %s}"):format(k, v) end
    return "{" .. table.concat(items, ", ") .. "}"
end
local function recordTable(names, what, values, texts, limit)
    local groups = shape("array of groups (records), " .. ITEMS:gsub("item k carries fid k", "in record order; the fids are the script's own") ..
                         "; " .. texts .. " (at most 255 characters), the others integers",
                         "{" .. itemsExample(values) .. "}")
    fn({name = names.set, entry = names.setEntry, topic = "records", args = "count:integer, groups:table",
        results = "status:integer", codes = {"0 stored", "0xFFFFFFFF bad arguments, " .. limit .. ", or a group lacking an item (earlier groups stay)"},
        summary = "Replaces the " .. what .. " with count groups, each an array of " .. #values .. " items (count 0 empties the table).",
        shapes = {groups = groups}}, {badcount = 0xFFFFFFFF})
    fn{name = names.query, entry = names.queryEntry, topic = "records", args = "", results = "status:integer, groups:table?",
       codes = {"0 read", "0xFFFFFFFF no buffer"}, summary = "Returns the " .. what .. " as an array of groups of items.",
       shapes = {groups = groups}}
    fn{name = names.num, entry = names.numEntry, topic = "records", args = "", results = "status:integer, count:integer",
       codes = {"0 always"}, summary = "Returns the number of records of the " .. what .. "."}
end
recordTable({set = "qav_set_patch_errinfo", setEntry = "QAV_SetPatErrInfoByGroup", query = "qav_query_patch_errinfo",
    queryEntry = "QAV_QueryPatErrInfoByGroup", num = "qav_query_paterr_table_num", numEntry = "QAV_QueryPatErrTableNum"},
    "patch error table", {1, 2, "\"pkg.pat\"", 4, 5}, "item 3 is a text", "count above the capacity stores only the capacity")
F[#F].summary = "Returns the capacity of the patch error table (200 after qav_luaTblInit)."
recordTable({set = "qav_set_flh_syncinfo", setEntry = "QAV_SetFlhSyncInfoByGroup", query = "qav_query_flh_syncinfo",
    queryEntry = "QAV_QueryFlhSyncInfoByGroup", num = "qav_query_flhsync_record_num", numEntry = "QAV_QueryFlhSyncRecordNum"},
    "flash sync table", {1, 2, 3, "\"a\"", "\"b\"", "\"c\"", "\"d\"", 8}, "items 4 to 7 are texts", "count above 1000")
recordTable({set = "qav_set_load_patchinfo", setEntry = "QAV_SetLoadPatchInfoByGroup", query = "qav_query_load_patchinfo",
    queryEntry = "QAV_QueryLoadPatchInfoByGroup", num = "qav_query_loadpatch_record_num", numEntry = "QAV_QueryLoadPatchRecordNum"},
    "load-patch table", {1, 2, 3, "\"p.pat\"", 5, 6}, "item 4 is a text", "count above 32")
fn({name = "qav_set_paterr_table_num", entry = "QAV_SetPatErrTableNum", topic = "records", args = "capacity:integer",
   results = "status:integer", codes = {"0 set", "1 not one number"},
   summary = "Changes the capacity of the patch error table, growing its buffer when needed."}, {badcount = 1})
fn{name = "qav_clean_patch_errinfo", entry = "QAV_CleanPatErrInfoByGroup", topic = "records", args = "",
   results = "below:any", codes = {"declares one result but pushes none"},
   summary = "Empties the patch error table."}
fn{name = "qav_clean_load_patchinfo", entry = "QAV_CleanLoadPatInfoByGroup", topic = "records", args = "",
   results = "below:any", codes = {"declares one result but pushes none"},
   summary = "Empties the load-patch table."}
local REPORT = "array of entries, each an array of the 7 items fid 1 and 2 the keys (integers), 3 to 6 texts (at most 127, 99, 99, 99 characters), 7 an integer"
local REPORT_EXAMPLE = itemsExample {1, 2, "\"pcr\"", "\"a\"", "\"b\"", "\"c\"", 0}
local STATUS = "array of entries, each an array of the 6 items fid 1 the key (integer), 2 to 4 texts (at most 127, 49, 49 characters), 5 and 6 integers (6 the status)"
local STATUS_EXAMPLE = itemsExample {1, "\"pcr\"", "\"a\"", "\"b\"", 0, 1}
local NTP = "array of entries, each an array of items: fid 20 the server name (text, the key), fid 1 an integer, fids 7 and 12 booleans"
local NTP_EXAMPLE = "{{fid = 20, value = \"ntp1\"}, {fid = 1, value = 3}, {fid = 7, value = true}, {fid = 12, value = false}}"
fn{name = "qav_tpm_set_report_table", entry = "QAV_SetTpmReportTable", topic = "records", args = "entries:table",
   results = "status:integer", codes = {"0 stored (malformed entries are dropped)", "0xFFFFFFFF no table given"},
   summary = "Replaces the TPM report cache with the given entries (item arrays keyed by fids 1 and 2) and marks it fresh for 5 seconds.",
   shapes = {entries = shape(REPORT, "{" .. REPORT_EXAMPLE .. "}")}}
fn{name = "qav_tpm_set_status_table", entry = "QAV_SetTpmStatusTable", topic = "records", args = "entries:table",
   results = "status:integer", codes = {"0 stored (malformed entries are dropped)", "0xFFFFFFFF no table given"},
   summary = "Replaces the TPM status cache with the given entries (item arrays keyed by fid 1) and marks it fresh for 5 seconds.",
   shapes = {entries = shape(STATUS, "{" .. STATUS_EXAMPLE .. "}")}}
fn{name = "qav_tpm_get_report_table", entry = "QAV_GetTpmReportTable", topic = "records",
   args = "key1:integer, key2:integer, pagesize:integer", results = "status:integer, needrefresh:boolean?, entries:table?",
   codes = {"0 read", "0xFFFFFFFF page size 0"},
   summary = "Returns a page of TPM report entries starting at the given key pair and whether the cache is stale.",
   shapes = {entries = shape(REPORT .. ", in key order", "{" .. REPORT_EXAMPLE .. "}")}}
fn{name = "qav_tpm_get_status_table", entry = "QAV_GetTpmStatusTable", topic = "records",
   args = "key:integer, pagesize:integer", results = "status:integer, needrefresh:boolean, entries:table",
   codes = {"0 always"},
   summary = "Returns a page of TPM status entries ({needRefresh, record}) from the given key, or all of them when the cache is stale.",
   shapes = {entries = shape("array of `{needRefresh = boolean, record = items}`, in key order, record as set (" .. STATUS:gsub("^array of entries, each ", "") .. ")",
                             "{{needRefresh = false, record = " .. STATUS_EXAMPLE .. "}}")}}
fn{name = "qav_set_ntp_unicast_info", entry = "QAV_NtpSetUCastInfo", topic = "records", args = "entries:table",
   results = "status:integer", codes = {"0 stored (an unnamed or mistyped entry stops the set)", "0xFFFFFFFF no table given"},
   summary = "Replaces the NTP unicast server cache with the given entries (fid 20 name, fid 1 number, fids 7 and 12 booleans).",
   shapes = {entries = shape(NTP, "{" .. NTP_EXAMPLE .. "}")}}
fn({name = "qav_get_ntp_unicast_info", entry = "QAV_NtpGetUCastInfo", topic = "records", args = "server:string",
   results = "server:string|integer, status:integer?, entries:table?",
   codes = {"0 looked up (the name argument comes first: three results declared, two pushed)", "-1 not one string (one result)"},
   summary = "Returns the cached entry of one NTP unicast server (an empty array when unknown).",
   shapes = {entries = shape("the server's item array as set (" .. NTP:gsub("^array of entries, each ", "") .. "); `{}` when unknown", NTP_EXAMPLE)}},
   {badcount = -1})

-- Upgrade-state registers ----------------------------------------------------------------------
-- The setter refuses another argument count with the code of its "not exactly one argument".
local function register(gname, gentry, sname, sentry, what, setCodes, getResults)
    fn{name = gname, entry = gentry, topic = "registers", args = "", results = getResults or "value:integer",
       codes = getResults and {"0 always"} or {}, summary = "Returns the " .. what .. "."}
    setCodes = setCodes or {"0 stored", "-1 not exactly one argument"}
    local refused = (setCodes[2] or ""):match("^(%S+) not exactly one argument")
    fn({name = sname, entry = sentry, topic = "registers", args = "value:integer", results = "status:integer",
        codes = setCodes, summary = "Stores the " .. what .. "."}, {badcount = refused and tonumber(refused)})
end
register("qav_MK_GetMKBuildrunFlag", "QAV_MK_GetMKBuildrunFlag", "qav_MK_SetMKBuildrunFlag", "QAV_MK_SetMKBuildrunFlag", "master-key build-run flag")
register("qav_MK_GetMKModifyresult", "QAV_MK_GetMKModifyresult", "qav_MK_SetMKModifyresult", "QAV_MK_SetMKModifyresult", "master-key modify result")
register("qav_get_pat_noticeflag", "QAV_GetPatchCompNoticeFlag", "qav_set_pat_noticeflag", "QAV_SetPatchCompNoticeFlag", "patch completion notice flag")
register("qav_GetDLPkgInnerActSessionId", "qav_GetDLPkgInnerAct_SessionId", "qav_SetDLPkgInnerActSessionId", "qav_SetDLPkgInnerAct_SessionId", "session id of the inner download-package activation")
register("qav_GetPatchErrorOpPolicy", "QAV_GetPatchErrorOpPolicy", "qav_SetPatchErrorOpPolicy", "QAV_SetPatchErrorOpPolicy", "patch error operation policy", {"0 stored", "1 not exactly one argument"})
register("su_get_upgradeMode", "ISSU_GetUpgradeMode", "su_set_upgradeMode", "ISSU_SetUpgradeMode", "upgrade mode", {"0 stored", "0xFFFFFFFF not exactly one argument"}, "status:integer, mode:integer")
register("su_get_LockerbyCompleteActive", "ISSU_GetLockerByCompleteActive", "su_set_LockerbyCompleteActive", "ISSU_SetLockerByCompleteActive", "locker-by-complete-active value", {"0 always (argument 1 is stored unchecked)"}, "status:integer, value:integer")
register("sum_getExceptFileLock", "QAV_GetExceptFileLock", "sum_setExceptFileLock", "QAV_SetExceptFileLock", "except-file lock value (under its mutex)", nil, "status:integer, value:integer")
register("qav_query_pat_diag_errinfo", "QAV_QueryPatDiagErrInfo", "qav_set_pat_diag_errinfo", "QAV_SetPatDiagErrInfo", "patch diagnostic value (under its mutex)", {"0 stored", "0xFFFFFFFF not exactly one argument"}, "status:integer, value:integer")
local function wordPair(gname, gentry, sname, sentry, what, declared)
    fn{name = gname, entry = gentry, topic = "registers", args = "", results = "status:integer, word1:integer, word2:integer",
       codes = {"0 always"}, summary = "Returns the two words of the " .. what .. "."}
    fn{name = sname, entry = sentry, topic = "registers", args = "word1:integer, word2:integer", results = declared,
       codes = {"pushes nothing: the declared results are the values below on the stack (the arguments)"},
       summary = "Stores the two words of the " .. what .. "."}
end
wordPair("qav_SU_GetRstRollbackTimerLock", "QAV_SU_GetRstRollbackTimerLock", "qav_SU_SetRstRollbackTimerLock", "QAV_SU_SetRstRollbackTimerLock", "reset-rollback timer lock", "below1:any, below2:any, below3:any")
wordPair("qav_SU_GetUpgradeLockTime", "QAV_SU_GetUpgradeLockTime", "qav_SU_SetUpgradeLockTime", "QAV_SU_SetUpgradeLockTime", "upgrade lock time", "below1:any, below2:any")
wordPair("qav_SU_GetUpgradeState", "QAV_SU_GetUpgradeState", "qav_SU_SetUpgradeState", "QAV_SU_SetUpgradeState", "upgrade state", "below1:any, below2:any")
fn({name = "qav_SetApDLPkgLocalFileName", entry = "qav_SetApDLPkg_LocalFileName", topic = "registers", args = "name:string",
   results = "status:integer", codes = {"0 stored (at most 383 characters)", "-1 no argument"},
   summary = "Stores the local file name of an AP download package."}, {badcount = -1, ignoresextra = true})
fn{name = "qav_GetApDLPkgLocalFileName", entry = "qav_GetApDLPkg_LocalFileName", topic = "registers", args = "",
   results = "name:string", codes = {}, summary = "Returns the stored AP download package file name (\"\" before any set)."}
fn({name = "qav_set_start_info", entry = "QAV_SetStartInfo", topic = "registers", args = "info:table", results = "status:integer",
   codes = {"0 stored", "0xFFFFFFFF not one argument, or \"slotId\" not a string"},
   summary = "Stores \"startFlag\", \"timeFlag\" and \"slotId\"; timeFlag 1 stamps the start time, another non-zero value the current time, 0 clears both.",
   shapes = {info = shape("`{startFlag = integer, timeFlag = integer, slotId = string}`", "{startFlag = 1, timeFlag = 1, slotId = \"3\"}")}},
   {badcount = 0xFFFFFFFF})
fn({name = "qav_query_start_info", entry = "QAV_QueryStartInfo", topic = "registers", args = "info:table", results = "status:integer",
   codes = {"0 stored into the table", "0xFFFFFFFF not one argument"},
   summary = "Stores \"startTime\", \"curTime\", \"timeFlag\", \"startFlag\" and \"slotId\" into the given table.",
   shapes = {info = shape("any table; filled with `{startTime, curTime, timeFlag, startFlag = integer, slotId = string}` (times in seconds of the monotonic clock)",
                          "local info = {}; libqavluacommon.qav_query_start_info(info) -- info.slotId == \"3\"")}},
   {badcount = 0xFFFFFFFF})
fn({name = "su_set_upgradeInfo", entry = "ISSU_SetUpgradeInfo", topic = "registers", args = "base:string, upgrade:string",
   results = "status:integer", codes = {"0 stored", "0xFFFFFFFF a version missing"},
   summary = "Stores the base and upgrade versions of an ISSU upgrade."}, {badcount = 0xFFFFFFFF, ignoresextra = true})
fn{name = "su_get_upgradeInfo", entry = "ISSU_GetUpgradeInfo", topic = "registers", args = "",
   results = "status:integer, base:string?, upgrade:string?, mode:integer?", codes = {"0 set", "0xFFFFFFFF never set"},
   summary = "Returns the stored ISSU base and upgrade versions and the upgrade mode."}
fn({name = "su_RecordFaultBoard", entry = "ISSU_RecordFaultBoard", topic = "registers", args = "board:integer",
   results = "status:integer", codes = {"0 recorded, already recorded, or the list is full", "1 board 0", "-1 not one argument"},
   summary = "Records a fault board in the 245-slot fault-board list."}, {badcount = -1})
fn{name = "su_JudgeFaultBoardExist", entry = "ISSU_JudgeFaultBoardExist", topic = "registers", args = "board:integer",
   results = "status:integer", codes = {"0 not recorded", "1 recorded", "2 board 0"},
   summary = "Tells whether a board is in the fault-board list."}
fn{name = "su_ClearFaultBoardInfo", entry = "ISSU_ClearFaultBoardInfo", topic = "registers", args = "",
   results = "status:integer", codes = {"0 always"}, summary = "Empties the fault-board list."}
fn{name = "qav_pat_diag_err_lock_init", entry = "QAV_PatDiagErrLockInit", topic = "registers", args = "",
   results = "status:integer", codes = {"0 always"}, summary = "Initialises the patch diagnostic value's mutex and clears the value."}
fn{name = "qav_pat_diag_err_info_init", entry = "QAV_PatDiagErrInfoInit", topic = "registers", args = "",
   results = "status:integer", codes = {"0 initialised", "1 out of memory"},
   summary = "Creates (once) and empties the ring of the last 50 patch error records."}
local PATERR = "`{time = string, cid = integer, errorCode = integer, funcName = string, compName = string}` (texts at most 47 characters)"
local PATERR_EXAMPLE = "{time = \"2024-05-06 07:08:09\", cid = 3, errorCode = 1001, funcName = \"load\", compName = \"patch\"}"
fn({name = "qav_set_pat_errinfo", entry = "QAV_SetPatErrorInfo", topic = "registers", args = "record:table",
   results = "status:integer", codes = {"0 stored", "0xFFFFFFFF ring absent (qav_pat_diag_err_info_init makes it), not one argument, or \"time\" not a string (the slot is still used)"},
   summary = "Adds a patch error record (\"time\", \"cid\", \"errorCode\", \"funcName\", \"compName\") to the ring.",
   shapes = {record = shape(PATERR .. "; `time` is required", PATERR_EXAMPLE)}}, {badcount = 0xFFFFFFFF})
fn{name = "qav_query_pat_errinfo", entry = "QAV_QueryPatErrorInfo", topic = "registers", args = "",
   results = "status:integer, records:table|nil", codes = {"0 read (nil when empty)", "0xFFFFFFFF ring absent"},
   summary = "Returns the patch error records of the ring, newest first.",
   shapes = {records = shape("array of records " .. PATERR .. ", newest first", "{" .. PATERR_EXAMPLE .. "}")}}
fn{name = "qav_set_tpmActiving_flag", entry = "QAV_SetTpmActivingFlag", topic = "registers", args = "flag:integer",
   results = "below:any", codes = {"declares one result but pushes none"},
   summary = "Sets (1) or clears the TPM activating flag with the current wall-clock time."}
fn{name = "qav_get_tpmActiving_flag", entry = "QAV_GetTpmActivingFlag", topic = "registers", args = "",
   results = "flag:integer", codes = {"1 set within the last 299 seconds", "0 otherwise"},
   summary = "Returns the TPM activating flag, which lapses after 299 seconds."}
fn({name = "qav_PutVPNindex", entry = "QAV_PutVPNindex", topic = "registers", args = "index:string",
   results = "status:integer", codes = {"0 written", "1 not one argument, or the file could not be created"},
   summary = "Writes the VPN index into \"../bootfile/vpn.ini\" (section \"[VPN INDEX]\", key \"index \")."}, {badcount = 1})
fn{name = "qav_get_cputype", entry = "QAV_Get_CpuType", topic = "registers", args = "", results = "bits:integer",
   codes = {"32 always"}, summary = "Returns the CPU type word size, always 32."}
fn{name = "qav_SysGetWordSize", entry = "QAV_SysGetWordSize", topic = "registers", args = "", results = "bits:integer",
   codes = {"32 always"}, summary = "Returns the word size, always 32."}
fn{name = "qav_IsInContainer", entry = "QAV_IsInContainer", topic = "registers", args = "", results = "incontainer:integer",
   codes = {"0 always"}, summary = "Tells whether the process runs in a container: always 0."}
fn{name = "qav_spt_IsProductEnv", entry = "QAV_SPT_IsProductEnv", topic = "registers", args = "", results = "product:boolean",
   codes = {}, summary = "Tells whether this is a product environment: always true."}
fn{name = "qav_GetEnabledFromDesc", entry = "QAV_GetEnabledFromDesc", topic = "registers", args = "",
   results = "status:integer, enabled:boolean", codes = {"0 always"}, summary = "Returns 0 and false."}
fn{name = "qav_IsNps", entry = "QAV_IsNps", topic = "registers", args = "", results = "nps:integer",
   codes = {"1 the platform reports an NPS", "0 otherwise"}, summary = "Tells whether the device is an NPS.",
   profile = {"`[device] nps` is the answer (default 0)"}}
fn{name = "qav_RPM_GetUpgradeFlag", entry = "QAV_RPM_GetUpgradeFlag", topic = "registers", args = "",
   results = "status:integer, flag:integer", codes = {"0 read", "other: the package manager's code (flag 255)"},
   summary = "Returns the package manager's upgrade flag.", profile = {"`[rpm] upgrade_flag` is the flag (default 0)"}}
fn{name = "qav_BackupPatchHistoryIni", entry = "QAV_BackupPatchHistoryIni", topic = "registers", args = "",
   results = "", codes = {}, summary = "Asks the package manager to back up the patch history file; returns nothing.",
   profile = {"`[rpm] patch_history_ini` names the file (default data/patch_history.ini under the common root)"}}
fn{name = "qav_FIPS_GetFipsStatus", entry = "QAV_FIPS_LuaGetFipsStatus", topic = "registers", args = "",
   results = "status:integer", codes = {}, summary = "Returns the FIPS mode status of the platform.",
   profile = {"`[security] fips` is the status (default 0)"}}
fn{name = "qav_get_softreset_flag", entry = "QAV_GetSoftResetFlag", topic = "registers", args = "",
   results = "supported:boolean", codes = {}, summary = "Tells whether the board supports a soft reset.",
   profile = {"`[board] soft_reset` is the answer (default 0)"}}
fn({name = "qav_get_filelistname", entry = "QAV_GetFileListName", topic = "registers", args = "filetype:integer, subtype:integer, flag:integer",
   results = "status:integer, name:string", codes = {"0 found", "5005 not three arguments", "other: the package manager's code (empty name)"},
   summary = "Returns the file-list name of a file type on the main board.",
   profile = {"`[filelist] <filetype>_<subtype>_<flag>` is the name; without the key the package manager answers 1"}}, {badcount = 5005})

-- Upgrade lock, software-management and HA vnode locks ----------------------------------------
fn({name = "qav_Lock", entry = "QAV_Lock", topic = "upgrade-lock", args = "duration:integer, type:integer, vmlist:string|nil",
   results = "result:integer",
   codes = {"0 locked", "1 bad arguments, clock or mutex failure", "2 incompatible with the current state", "3 VM overlap or missing VM list", "0xFFFFFFFF out of memory"},
   summary = "Takes the upgrade lock for duration seconds: type 1 write (exclusive, pass nil as vmlist), otherwise read for the VMs of vmlist; an expired lock is reset first."},
   {badcount = 1})
fn({name = "qav_UnLock", entry = "QAV_UnLock", topic = "upgrade-lock", args = "type:integer, vmlist:string|nil",
   results = "result:integer",
   codes = {"0 unlocked, expired or idle", "1 uninitialised, clock or mutex failure, bad arguments", "3 missing VM list or list not locked (exact string)", "0xFFFFFFFF unlock type does not match the lock state"},
   summary = "Releases a write lock (type 1, pass nil as vmlist) or one locked VM list (type 2)."}, {badcount = 1})
fn{name = "qav_IsLocked", entry = "QAV_IsLocked", topic = "upgrade-lock", args = "", results = "locked:boolean",
   codes = {}, summary = "Tells whether the upgrade lock is set and its period has not ended."}
fn({name = "qav_SWMLock", entry = "QAV_SWMLock", topic = "upgrade-lock", args = "agingtime:integer", results = "result:integer",
   codes = {"0 locked", "1 not one argument, clock or mutex failure", "2 already locked"},
   summary = "Takes the software-management lock for agingtime seconds (an expired one is taken over)."}, {badcount = 1})
fn{name = "qav_SWMUnLock", entry = "QAV_SWMUnLock", topic = "upgrade-lock", args = "", results = "result:integer",
   codes = {"0 unlocked", "1 mutex failure"}, summary = "Releases the software-management lock, whoever holds it."}
fn{name = "qav_HaVnodeLock", entry = "QAV_HaVnodeLock", topic = "upgrade-lock", args = "", results = "result:integer",
   codes = {"0 taken", "1 already held"}, summary = "Tries the HA vnode deployment lock without waiting."}
fn{name = "qav_HaVnodeUnlock", entry = "QAV_HaVnodeUnlock", topic = "upgrade-lock", args = "", results = "result:integer",
   codes = {"0 always"}, summary = "Releases the HA vnode deployment lock."}

-- Time services --------------------------------------------------------------------------------
local KEYERR = "0x801707 a time key missing or not a number"
local POSIX = shape("any table; filled with `{year (since 2000), month, day, hour, minute, second, uSecond}`, integers",
                    "local t = {}; libqavluacommon.rpm_get_gmtime(t) -- t.year == 24 in 2024")
local FILLED = shape("any table; filled with the time table " .. TIME[1], "local t = {}; libqavluacommon.qav_GetGMTSystime(t) -- t.year, t.month, ...")
fn{name = "qav_spt_SysLocalTimeGet", entry = "QAV_SPT_SysLocalTimeGet", topic = "time", args = "time:table",
   results = "status:integer, indst:integer", codes = {"0 filled", "other: the platform's status", "not one argument: a bad result count (kept as it is)"},
   summary = "Fills the table with the local wall time and tells whether daylight saving is in force (1).", shapes = {time = FILLED}}
fn({name = "qav_GetGMTSystime", entry = "QAV_GetGMTSystime", topic = "time", args = "time:table", results = "status:integer",
   codes = {"0 filled", "1 not one argument", "22 the platform failed"}, summary = "Fills the table with the GMT wall time.",
   shapes = {time = FILLED}}, {badcount = 1})
fn{name = "qav_SystimeSecToTime", entry = "QAV_SystimeSecToTime", topic = "time", args = "seconds:integer, time:table",
   results = "status:integer", codes = {"0 always (all zeros in the table after a wrong argument count)"},
   summary = "Converts seconds since 1970 to a calendar time table.", shapes = {time = FILLED}}
fn({name = "qav_GetSystimeToSecond", entry = "QAV_GetSystimeToSecond", topic = "time", args = "",
   results = "seconds:integer, microseconds:integer", codes = {"0 (and 0) arguments given, or the clock unreadable"},
   summary = "Returns the raw system time in seconds and microseconds since 1970."}, {badcount = 0})
fn({name = "qav_GetUptimeMillSec", entry = "QAV_GetUptimeMillSec", topic = "time", args = "",
   results = "status:integer, word1:integer, word2:integer", codes = {"0 read", "0xFFFFFFFF arguments given"},
   summary = "Returns the uptime in milliseconds as two 32-bit words in the platform's order (the high word first on the host)."}, {badcount = 0xFFFFFFFF})
fn({name = "qav_GetUptimeSec", entry = "QAV_GetUptimeSec", topic = "time", args = "",
   results = "status:integer, word1:integer, word2:integer", codes = {"0 read", "0xFFFFFFFF arguments given"},
   summary = "Returns the uptime in seconds as two 32-bit words in the platform's order (the high word first on the host)."}, {badcount = 0xFFFFFFFF})
fn({name = "qav_systimerelseccal", entry = "QAV_SystimeRelSecCal", topic = "time", args = "later:table, earlier:table",
   results = "seconds:integer", codes = {">=0 later minus earlier", "1 not two arguments", KEYERR, "0xFFFFFFFF the later time is before the earlier one"},
   summary = "Returns how many seconds the first time lies after the second.", shapes = {later = TIME, earlier = TIME}}, {badcount = 1})
fn({name = "qav_systimereldaycal", entry = "QAV_SystimeRelDayCal", topic = "time", args = "later:table, earlier:table",
   results = "days:integer", codes = {">=0 calendar days between the dates", "1 not two arguments", KEYERR, "0xFFFFFFFF refused (later's date is earlier)"},
   summary = "Returns the calendar days from the second time's date to the first's.", shapes = {later = TIME, earlier = TIME}}, {badcount = 1})
fn({name = "qav_SystimeCompare", entry = "QAV_SystimeCompare", topic = "time", args = "first:table, second:table",
   results = "comparison:integer", codes = {"1 first earlier", "2 equal", "3 first later", "0 failure", KEYERR},
   summary = "Compares two times.", shapes = {first = TIME, second = TIME}}, {badcount = 1})
fn({name = "qav_SystimeAddMilliSeconds", entry = "QAV_SystimeAddMilliSeconds", topic = "time", args = "time:table, milliseconds:integer",
   results = "status:integer", codes = {"0 added", "1 not two arguments", "22 the platform failed", KEYERR},
   summary = "Adds milliseconds to the time table in place.", shapes = {time = TIME}}, {badcount = 1})
fn({name = "rpm_get_gmtime", entry = "QAV_RPM_GetGmTime", topic = "time", args = "time:table", results = "status:integer",
   codes = {"0 filled", "1 not one argument"},
   summary = "Fills the table with GMT in the POSIX form (\"year\" since 2000, \"month\", \"day\", \"hour\", \"minute\", \"second\", \"uSecond\").",
   shapes = {time = POSIX}}, {badcount = 1})
fn({name = "rpm_get_localtime", entry = "QAV_RPM_GetLocalTime", topic = "time", args = "time:table", results = "status:integer",
   codes = {"0 filled", "1 not one argument"}, summary = "Fills the table with the local time in the POSIX form of rpm_get_gmtime.",
   shapes = {time = POSIX}}, {badcount = 1})
local GMTOUT = shape("any table; filled with the GMT time table " .. TIME[1], "local gmt = {}")
local LOCALOUT = shape("any table; filled with the local time table " .. TIME[1], "local lt = {}")
fn({name = "qav_spt_SysLocalTime2Gmt", entry = "QAV_SPT_SysLocalTime2Gmt", topic = "time",
   args = "localtime:table, indst:integer, gmt:table", results = "status:integer",
   codes = {"0 converted", "0xFFFFFFFF bad arguments", KEYERR, "other: the platform's status"},
   summary = "Converts a local time to GMT under the device's time zone and DST rule.", shapes = {localtime = TIME, gmt = GMTOUT}},
   {badcount = 0xFFFFFFFF})
fn({name = "qav_spt_SysGmt2LocalTime", entry = "qav_spt_SysGmt2LocalTime", topic = "time", args = "gmt:table, localtime:table",
   results = "status:integer, indst:boolean", codes = {"0 converted", "0xFFFFFFFF bad arguments or a time value not an unsigned integer", "other: the platform's status"},
   summary = "Converts a GMT time to local time under the device's configuration and tells whether DST applies.",
   shapes = {gmt = TIME, localtime = LOCALOUT}}, {badcount = 0xFFFFFFFF})
fn({name = "qav_spt_SysLocalTime2GmtByTzDst", entry = "QAV_SPT_SysLocalTime2GmtByTzDst", topic = "time",
   args = "localtime:table, indst:boolean, zone:table, dst:table, gmt:table", results = "status:integer",
   codes = {"0 converted", "0xFFFFFFFF bad arguments", KEYERR, "other: the platform's status"},
   summary = "Converts a local time to GMT under the given time zone and DST rule.",
   shapes = {localtime = TIME, zone = ZONE, dst = DST, gmt = GMTOUT}}, {badcount = 0xFFFFFFFF})
fn({name = "qav_spt_SysGmt2LocalTimeByTzDst", entry = "QAV_SPT_SysGmt2LocalTimeByTzDst", topic = "time",
   args = "gmt:table, zone:table, dst:table, localtime:table", results = "status:integer, indst:boolean",
   codes = {"0 converted", "0xFFFFFFFF bad arguments", KEYERR, "other: the platform's status"},
   summary = "Converts a GMT time to local time under the given time zone and DST rule.",
   shapes = {gmt = TIME, zone = ZONE, dst = DST, localtime = LOCALOUT}}, {badcount = 0xFFFFFFFF})
fn({name = "qav_spt_SetTzDstCfg", entry = "QAV_SPT_SetTzDstCfg", topic = "time", args = "zone:table, dst:table",
   results = "status:integer", codes = {"0 installed", "0xFFFFFFFF bad arguments", "other: the platform's status"},
   summary = "Installs a time zone (\"timeZoneName\", \"option\", \"timeZoneOffset\", \"lrId\") and DST rule as the device's configuration (kept in the sandbox's zakhost_state.ini on the host).",
   shapes = {zone = ZONE, dst = DST}}, {badcount = 0xFFFFFFFF})
fn({name = "qav_GetTimeZoneOffset", entry = "QAV_GetTimeZoneOffset", topic = "time", args = "",
   results = "status:integer, zone:string", codes = {"0 read", "1 arguments given"}, summary = "Returns the configured time zone as text (\"<zone name> <sign>HH:MM:SS\")."},
   {badcount = 1})
fn({name = "qav_GetTimeOffset", entry = "QAV_GetTimeOffset", topic = "time", args = "",
   results = "status:integer, offsets:string", codes = {"0 read", "1 arguments given"},
   summary = "Returns the configured time offsets as text (\"std <zone offset> dst <daylight offset> now <offset in force>\")."}, {badcount = 1})
fn({name = "qav_TzWeekDayToTime", entry = "QAV_TzWeekDayToTime", topic = "time",
   args = "year:integer, month:integer, weeknum:integer, weekday:integer, time:table", results = "status:integer",
   codes = {"0 filled", "other: the platform's status (22 for a value out of range)", "with a wrong count: the argument count itself"},
   summary = "Fills the table with 00:00:00 of the weeknum-th (1 to 4, 5 = last) weekday (0 = Sunday to 6) of a month.",
   shapes = {time = FILLED}}, {badcount = "count"})
fn({name = "qav_GetAppointmentTimeOffset", entry = "QAV_GetAppointmentTimeOffset", topic = "time", args = "gmt:table",
   results = "status:integer, offset:string", codes = {"0 computed (\"\" when local equals GMT)", "1 comparison failed", "with a wrong count: the argument count itself"},
   summary = "Returns the offset between local time and GMT at the given moment as \"+hh:mm\" or \"-hh:mm\".",
   shapes = {gmt = TIME}}, {badcount = "count"})

-- Traps, event logs and script logs ------------------------------------------------------------
local TRAPERR = "5005 wrong argument count or a string missing"
local CID = "`[cmf_table_45]` (the configuration database's component table) gives the component id the record is filed under (`zakhost.events()` shows it)"
local function trap(name, entry, args, what, codes, more)
    more = more or {}
    more.badcount = more.badcount or 5005
    fn({name = name, entry = entry, topic = "events", args = args, results = "status:integer",
        codes = codes or {"0 raised", TRAPERR, "other: the component-id or event-log status"}, summary = what, profile = {CID}}, more)
end
trap("qav_trap_flhsyncsuccess", "QAV_TRAP_FlhSyncSuccess", "index:integer, source:string, destination:string, vsid:integer", "Raises the flash synchronisation success event (0x8090008).")
trap("qav_trap_flhsyncfail", "QAV_TRAP_FlhSyncFail", "index:integer, source:string, destination:string, vsid:integer", "Raises the flash synchronisation failure event (0x8090009).")
trap("qav_trap_clockchange", "QAV_TRAP_ClockChange", "packedtime:string", "Sends the clock-change trap for a packed 7-byte time (big-endian year, month, date, hour, minute, second).")
trap("qav_trap_UTCclockchange", "QAV_TRAP_UTCClockChange", "old:table, new:table", "Records a UTC clock change with the old and new time tables (0x809000D, 0x809000C).",
     {"0 recorded", "0xFFFFFFFF not two tables", "other: the component-id or event-log status"},
     {badcount = 0xFFFFFFFF, shapes = {old = TIME, new = TIME}})
trap("qav_trap_patcherror", "QAV_TRAP_PatchError", "errindex:integer, slot:integer, pkgindex:integer, errcode:integer, package:string", "Raises the patch error event (0xD161002) and echoes it to the patch log when the patch log level is above 1.")
trap("pat_event_log", "QAV_PAT_EventLog", "version:string, type:integer, state:integer", "Records the patch state event (0xD161001) for a patch version.")
trap("qav_trap_sumupgradesuccess", "QAV_TRAP_SumUpgradeSuccess", "index:integer, chassis:string", "Raises the two upgrade success events (0x9550000, 0x9551036).")
trap("qav_trap_sysissu", "QAV_TRAP_SysIssu", "state:integer, check:integer", "Raises the system ISSU state event (0x9550003).")
trap("qav_trap_sysimgerror", "QAV_TRAP_SysImageError", "index:integer, field1:string, field2:string, field3:string", "Raises the system image error event (0x9550004) with the index and the three text fields in order.")
trap("qav_trap_sysreload", "QAV_TRAP_SysReload", "index:integer, image:integer, config:integer, reason:string, time:table, action:integer, paf:integer, licence:integer, patch:integer",
     "Raises the system reload event (0x809000B).", {"0 raised", "5005 not nine arguments", "0xFFFFFFFF reason missing or time not a table", "other: the component-id or event-log status"},
     {shapes = {time = TIME}})
trap("qav_trap_slvswitchsuccess", "QAV_TRAP_SlaveSwitchSuccess", "chassisid:integer, chassis:string, source:string, destination:string", "Raises the slave switchover success event (0x8090006), suppressing a repeat for the local chassis within a second.")
trap("qav_trap_slvswitchfail", "QAV_TRAP_SlaveSwitchFail", "index:integer, chassis:string", "Raises the slave switchover failure event (0x8090007).")
trap("qav_dbg_event_log", "QAV_DBG_EventLog", "text:string", "Records a free-text debug event, in 5000-byte pieces (0x8061000, last piece 0x8091013).")
fn({name = "qav_write_log", entry = "QAV_WriteLog", topic = "events", args = "ignored:any, text:string", results = "status:integer",
   codes = {"0 written", "1 not two arguments", "2 text not a string"}, summary = "Writes \"[lua-log]\" and the text to the diagnostic log."}, {badcount = 1})
fn({name = "sdm_write_log", entry = "QAV_SDMWriteLog", topic = "events", args = "text:string", results = "status:integer",
   codes = {"0 written", "1 not one argument", "2 not a string"}, summary = "Writes \"[sdm-log]\" and the text to the software-management log."}, {badcount = 1})
fn({name = "pat_write_log", entry = "QAV_PAT_WriteLog", topic = "events", args = "level:integer, text:string", results = "status:integer",
   codes = {"0 written", "5000 text not a string", "5005 not two arguments"},
   summary = "Writes the text (cut to 299 characters) to the patch log at the given level."}, {badcount = 5005})
fn({name = "pat_trace_log", entry = "QAV_PAT_WriteTraceLog", topic = "events", args = "text:string", results = "status:integer",
   codes = {"0 handled (written only when patch tracing is on for it)", "5000 not a string", "5005 not one argument"},
   summary = "Writes the text to the patch trace file when patch tracing is on.",
   profile = {"`[patch] trace` 1 turns tracing on (default 0); `[patch] trace_filter` limits it to texts that contain the filter"}},
   {badcount = 5005})
fn({name = "rpm_parse_log", entry = "QAV_RPM_ParseLog", topic = "events", args = "path:string", results = "status:integer, path:string?",
   codes = {"0 converted", "22 not one string"}, summary = "Converts a log path to its Linux path."}, {badcount = 22})
fn({name = "qav_get_stamp_show_str", entry = "QAV_CreateShowStrByInfoCode", topic = "events", args = "infocode:integer, text:string",
   results = "status:integer, show:string", codes = {"0 or 515 display text formed", "1 bad arguments (empty text)", "other: the platform's code with an \"ERR!\" text"},
   summary = "Forms the display text of a startup stamp from its info code."}, {badcount = 1})
fn({name = "qav_free_dict_memory", entry = "QAV_FreeMemoryOfDictionary", topic = "events", args = "handle:integer",
   results = "status:integer", codes = {"0 freed (whatever the platform says)", "1 not one argument"},
   summary = "Frees a dictionary handle of the platform."}, {badcount = 1})
fn{name = "qav_SU_RecordExceptionLog", entry = "QAV_SU_RecordExceptionLog", topic = "events",
   args = "faulttype:integer, instance:integer, osnode:integer", results = "", codes = {},
   summary = "Logs and records an HA fault; returns nothing (missing arguments read as 0)."}

-- Ciphers, passwords and master key ------------------------------------------------------------
local function crypt(name, entry, args, results, codes, what, more)
    fn({name = name, entry = entry, topic = "crypt", args = args, results = results, codes = codes, summary = what}, more)
end
local MKEY = "`[master_key] key` is the master key (empty, the default: the device still has its default key)"
local DEVICEKEY = "`[crypt] device_key` is the default key (an empty one fails with 0x5A430008)"
local function refusing(badcount, ...) return {badcount = badcount, profile = {...}} end
local CBAD = "1 bad argument"
local CPLAT = "other: the platform's code"
crypt("qav_DecryptPassword_Enh", "QAV_DecryptPassword_Enh", "cipher:string", "status:integer, plain:string",
      {"0 decrypted", CBAD, CPLAT}, "Decrypts a password cipher text (at most 16 plain characters).", refusing(1, DEVICEKEY))
crypt("qav_DecryptPassword_EnhExp", "QAV_DecryptPassword_EnhExp", "cipher:string", "status:integer, plain:string",
      {"0 decrypted", CBAD, CPLAT}, "Decrypts a cipher text with the default key (at most 256 plain bytes).", refusing(1, DEVICEKEY))
crypt("qav_CRYPT_Decrypt", "QAV_CRYPT_Decrypt", "cipher:string, ignored:any, outsize:integer, algorithm:integer",
      "status:integer, plain:string", {"0 decrypted", "1 any failure"}, "Decrypts a cipher text with the given algorithm and the default key.", refusing(1, DEVICEKEY))
crypt("qav_CRYPT_Decrypt_Enhance", "QAV_CRYPT_Decrypt_Enhance", "cipher:string, length:integer, outsize:integer, algorithm:integer, key:string",
      "status:any, plain:string?", {"0 decrypted", CBAD, "platform failure: nothing pushed and one result declared, so the value below (the last argument) comes back"},
      "Decrypts a cipher text of the given length with the given algorithm and key.", refusing(1))
crypt("qav_EncryptPassword_EnhExp", "QAV_EncryptPassword_EnhExp", "plain:string, ignored:any", "status:integer, cipher:string",
      {"0 encrypted (the platform's result is not looked at: its failure leaves the text empty)", CBAD},
      "Encrypts a password with the default key and a random IV.", refusing(1, DEVICEKEY))
crypt("qav_CRYPT_Encrypt", "QAV_CRYPT_Encrypt", "plain:string, length:integer, outsize:integer, ignored:any, algorithm:integer",
      "cipher:string", {"empty text on any failure"}, "Encrypts the given length of plain text with the algorithm, the default key and a random IV.", refusing("", DEVICEKEY))
crypt("qav_CRYPT_Encrypt_Enhance", "QAV_CRYPT_Encrypt_Enhance", "plain:string, ignored:any, outsize:integer, algorithm:integer, key:string",
      "cipher:string", {"empty text on any failure"}, "Encrypts with the given algorithm and key and a random IV.", refusing(""))
crypt("qav_CRYPT_Encrypt_Enhance_IV", "QAV_CRYPT_Encrypt_Enhance_IV", "plain:string, ignored:any, outsize:integer, algorithm:integer, key:string, iv:string",
      "cipher:string", {"empty text on any failure"}, "Encrypts with the given algorithm, key and IV.", refusing(""))
crypt("qav_CRYPT_IsCipher", "QAV_CRYPT_IsCipher", "text:string", "result:integer", {CBAD, "otherwise the platform's answer"},
      "Tells whether a text is a cipher text of the platform.", refusing(1))
crypt("qav_CRYPT_IsPlainTextSame", "QAV_CRYPT_IsPlainTextSame", "text1:string, length1:integer, algorithm1:integer, text2:string, length2:integer, algorithm2:integer",
      "result:integer", {CBAD, "otherwise the platform's answer: 0 the plain texts are equal, 1 not"}, "Compares two texts, each a plain text or a cipher text of the default key, by their plain texts.", refusing(1, DEVICEKEY))
crypt("qav_CRYPT_IsPlainTextSame_Enhance", "QAV_CRYPT_IsPlainTextSame_Enhance",
      "text1:string, length1:integer, algorithm1:integer, key1:string, text2:string, length2:integer, algorithm2:integer, key2:string",
      "result:integer", {CBAD, "otherwise the platform's answer: 0 the plain texts are equal, 1 not"}, "Compares two texts, each a plain text or a cipher text of its own key, by their plain texts.", refusing(1))
crypt("qav_Crypt_Digest", "QAV_DESLUA_EncryptSystemPassword", "plain:string", "status:integer, digest:string",
      {"0 made", CBAD, CPLAT}, "Makes the system-password digest of a password (always a 33-byte string).", refusing(1, "`[crypt] password_cost` sets the cost of new digests (10 to 20, default 14)"))
crypt("qav_VerifySystemPassword", "QAV_VerifySystemPassword", "plain:string, digest:string", "result:integer",
      {"0 matches", CBAD, CPLAT}, "Verifies a password against a stored system-password digest.", refusing(1))
crypt("qav_generate_randnum", "QAV_Generate_Randnum", "count:integer", "status:integer, bytes:string",
      {"0 drawn", "1 bad count (empty text)"}, "Draws count random bytes.", refusing(1))
crypt("qav_CRYPT_Decrypt_Ext", "QAV_CRYPT_Decrypt_Ext",
      "mode:integer, key:string, keylen:integer, iv:string, ivlen:integer, cipher:string, cipherlen:integer",
      "status:integer, plain:string", {"0 decrypted", "1 bad arguments or mode not 0 or 1", CPLAT},
      "Decrypts hex cipher text with a hex key and IV in one of two cipher modes.", refusing(1))
crypt("qav_MK_CurrentKeyIsDefault", "QAV_MK_CurrentKeyIsDefault", "", "status:integer, isdefault:integer", {"0 always"},
      "Tells whether the current master key is the default one (1) or not (0).", {profile = {MKEY}})
crypt("qav_MK_CheckHashHit", "QAV_MK_CheckHashHit", "hash:string", "status:integer, hit:integer?", {"0 checked", "0xFFFFFFFF any failure (one result)"},
      "Tells whether a master-key hash text matches a known key.", refusing(0xFFFFFFFF, MKEY))
crypt("qav_MK_CheckInputMkIsRight", "QAV_MK_CheckInputMkIsRight", "key:string", "status:integer, match:integer",
      {"0 checked (match 1 also when the current key is the default)", "0xFFFFFFFF failure"}, "Tells whether the input key is the current master key.", {profile = {MKEY}})
crypt("qav_MK_CheckMKActiveStatus", "QAV_MK_CheckMKActiveStatus", "", "status:integer", {}, "Returns the master key's active status from the platform.", {profile = {"`[master_key] active` is the status until a set persists one in the sandbox's zakhost_state.ini"}})
crypt("qav_MK_SetMKActiveStatus", "QAV_MK_SetMKActiveStatus", "", "status:integer", {"0 always"}, "Clears the master key's active status.")
crypt("qav_MK_VerifySystemPassword", "QAV_MK_VerifySystemPassword", "account:string, password:string, digest:string", "result:integer",
      {"0xFFFFFFFF bad arguments", "otherwise the platform's result"}, "Verifies a system password through the master-key service.", refusing(0xFFFFFFFF, "`[system_password] <account>` is the digest checked when the digest argument is empty"))
crypt("qav_MK_RefreshAuthenFailTime", "QAV_MK_RefreshAuthenFailTime", "", "", {},
      "Records now as the time of the last authentication failure; returns nothing.")
crypt("qav_MK_CheckAuthenDisabled", "QAV_MK_CheckAuthenDisabled", "", "disabled:boolean", {},
      "Tells whether authentication is still in its 16-second back-off after the last failure.")
crypt("qav_MK_GetMKConfigStatus", "QAV_MK_GetMKConfigStatus", "", "status:integer", {}, "Returns the master key's configuration status.", {profile = {"`[master_key] config_status` is the status until a set persists one in the sandbox's zakhost_state.ini"}})
crypt("qav_MK_SetMKConfigStatus", "QAV_MK_SetMKConfigStatus", "status:integer", "result:integer",
      {"0 set", "-1 not exactly one argument"}, "Sets the master key's configuration status.", refusing(-1))
crypt("qav_MK_InputKeyIsSecurity", "QAV_MK_InputKeyIsSecurity", "key:string", "strong:integer", {"1 strong", "0 not strong"},
      "Tells whether a key is strong: at least 20 characters with a digit, a lower-case and an upper-case letter and a punctuation character.")
crypt("qav_MK_GetMKHashValue", "QAV_MK_GetMKHashValue", "", "status:integer, hash:string?", {"0 read (sixteen \"0\" for the default key)", "0xFFFFFFFF failure"},
      "Returns the hash text of the current master key.", {profile = {MKEY}})
crypt("qav_VerifyAndSetGuestOSKey", "QAV_VerifyAndSetGuestOSKey", "user:string, old:string, new:string", "status:integer?, hash:string?",
      {"no result: the device is not an NPS", "0 changed", "1000 bad arguments", "1001 no such user", "1002 old password wrong", "1003 change failed (also when the new password was used before)"},
      "Verifies an OS user's old password, sets the new one and returns its new shadow hash.", refusing(1000, "`[device] nps` must be 1: on any other device the function returns nothing", "the accounts are the sandbox's etc/passwd and etc/shadow (`qavlua init` writes a `guest` with the password \"Guest#Pass1\")"))

-- Version configuration and package checks -----------------------------------------------------
local function ver(name, entry, args, results, codes, what, more)
    fn({name = name, entry = entry, topic = "vercfg", args = args, results = results, codes = codes, summary = what}, more)
end
local MORLO = "`[device] morlo` 1 makes the platform compute file digests; with 0 (the default) every digest compares as empty, " ..
    "so a file whose vercfg.xml node carries a digest (as `qavpkg vercfg` writes) fails the check"
ver("qav_RpmGetVersionInfo", "QAV_RpmGetVersionInfo", "xmlpath:string, kind:integer", "code:integer, text:string",
    {"0 read", "1 bad arguments, unknown kind or unreadable element (empty text)"},
    "Reads one item of a vercfg.xml by kind: 1 PackageType, 2 APPType, 3 VersionType, 4 Version, 5 BaseVersion, 6 files and type codes \"TRUE\"/\"FALSE\", 7 files, 8 VNF InterfaceId, 9 VNF ProductType, 10 application text.", {badcount = 1, profile = {MORLO .. " (kinds 6 and 7 answer \"FALSE\")"}})
ver("qav_RpmGetPkgInfo", "QAV_RpmGetPkgInfo", "kind:integer", "code:integer, text:string",
    {"0 read", "1 bad arguments, unknown kind or unreadable key (empty text)"},
    "Returns the start-load software (kind 0) or the last (else current) startup software without its device prefix (kind 1) from ../data/zakcfg.ini.", {badcount = 1})
ver("qav_GetZakcfgInfo", "QAV_GetZakcfgInfo", "", "current:string, last:string, next:string", {"empty text for a value that cannot be read"},
    "Returns the version directories of the current, last and next startup software.")
ver("qav_GetFileNameFromVercfg", "QAV_GetFileNameFromVercfg", "xmlpath:string, typecode:integer, check:integer", "code:integer, name:string",
    {"0 found", "1 bad arguments, no such node, or digest check failed (empty name)"},
    "Returns the file name of the first node of a type code in a vercfg.xml, checking its SHA-256 digest when check is non-zero.", {badcount = 1, profile = {MORLO .. " (with check non-zero)"}})
ver("qav_GetFileNameFromVercfgByDestObjType", "QAV_GetFileNameFromVercfgByDestObjType", "xmlpath:string, desttype:string", "code:integer, name:string",
    {"0 found", "1 failure (empty name)"}, "Returns the package file name of a destination object type from a vercfg.xml.", {badcount = 1})
ver("qav_RpmGetPatPkgInfo", "QAV_RpmGetPatPkgInfo", "xmlpath:string, kind:integer", "code:integer, name:string",
    {"0 found and its digest verified", "1 bad arguments, unknown kind, missing node or digest mismatch (empty name)"},
    "Returns the hot (kind 0) or cold (kind 1) patch package file named in a vercfg.xml after checking its SHA-256 digest.", {badcount = 1, profile = {MORLO}})
ver("qav_GetInfoFromXml", "QAV_GetInfoFromXml", "pkgdir:string, wantfile:boolean",
    "code:integer, packagetype:string, versiontype:string, apptype:string, version:string, baseversion:string, filename:string, netype:string",
    {"0 read (also for a bad argument list, with empty texts: kept as it is)", "0x31C410 PackageType unreadable", "0x31C420 VersionType, Version or BaseVersion unreadable",
     "0x31C430 APPType unreadable", "0x31C400 NeType unreadable", "1 not exactly one file of the version type", "0x31C480 file node unreadable"},
    "Reads the package description items of <pkgdir>/vercfg.xml (and the package's own file name when asked).")
ver("qav_GetFileInfoFromXml", "QAV_GetFileInfoFromXml", "typecode:integer, pkgdir:string, mode:integer", "code:integer, value:string|integer",
    {"0 read", "1 failure, not exactly one node, or unknown mode (empty text)"},
    "Returns the file name (mode 1) or numeric attribute (mode 2) of the one node of a type code in <pkgdir>/vercfg.xml.", {badcount = 1})
ver("qav_GetMimNumFromXml", "QAV_GetMimNumFromXml", "pkgdir:string", "code:integer, count:integer",
    {"0 counted (also for a bad argument count)", "0x31C470 count failed or path missing"}, "Counts the file nodes of type code 1 in <pkgdir>/vercfg.xml.")
ver("qav_GetFileListFromVerCfgXml", "QAV_GetFileListFromVerCfgXml", "xmlpath:string", "code:integer, list:string?",
    {"0 listed", "1 failure (one result)"}, "Lists every file name of a vercfg.xml, each followed by \";\".", {badcount = 1})
ver("qav_GetVnfcPathListFromVercfgXml", "QAV_GetVnfcPathListFromVercfgXml", "xmlpath:string", "code:integer, list:string?",
    {"0 listed", "1 failure (one result)"}, "Lists the names of the type-0 file nodes cut at their first \".\", each followed by \";\".", {badcount = 1})
ver("qav_IsVnfcVercfgXml", "QAV_IsVnfcVercfgXml", "xmlpath:string", "code:integer, isvnfc:boolean?",
    {"0 answered", "1 failure (one result)"}, "Tells whether a vercfg.xml describes a VNFC package (a type-0 file with a \".\" and no \".zip\", or no type-0 files).", {badcount = 1})
ver("qav_GetFileSha256Sum", "QAV_GetFileSha256Sum", "path:string", "code:integer, digest:string?",
    {"0 computed", "22 bad arguments (one result)", "other: the digest's failure code (one result)"}, "Returns the SHA-256 digest of a file as hex text.", {badcount = 22})
ver("qav_SHA_Digest", "QAV_SHA_Digest", "plain:string", "status:integer, digest:string",
    {"as qav_Crypt_Digest"}, "A second name for qav_Crypt_Digest: the system-password digest of a password.", {badcount = 1})
ver("qav_ProcIssuOper", "QAV_ProcIssuOper", "command:integer, argument:string", "code:integer, ...:string",
    {"0 done, followed by the handler's texts", "1 the handler failed", "22 wrong argument count or no arguments", "38 unknown command word"},
    "Runs an ISSU operation on a version text (empty: the running version) or a package path: 1 package name, base path and full path, 2 NE type, 3 product type, 4 RPG image information, 5 key check items.", {badcount = 22})

-- Risk-check reports and version-file consistency ----------------------------------------------
local function risk(name, entry, args, results, codes, what, more)
    fn({name = name, entry = entry, topic = "risk", args = args, results = results, codes = codes, summary = what}, more)
end
risk("qav_InitRiskCheckXmlFile", "QAV_InitRiskCheckXmlFile", "path:string, nename:string, neitem:string", "code:integer",
     {"0 created", "1 bad arguments or the file could not be written"}, "Creates (or overwrites) a risk-check report file with its \"RiskCheck\" root and \"NeName\" element.", {badcount = 1})
risk("qav_AddRiskCheckResult", "QAV_AddRiskCheckResult", "path:string, group:string, item:string, description:string, action:string, solution:string",
     "code:integer", {"0 added", "1 bad arguments, unreadable report or a root other than \"RiskCheck\""},
     "Adds a check result as the next numbered \"Items\" element of a group of the report (the group is appended when new).", {badcount = 1})
risk("qav_RiskCheckParaCheck", "QAV_RiskCheckParaCheck", "xmlpath:string, pkgtype:string, version:string", "code:integer",
     {"0 package type and version match", "1 bad arguments", "12738 (0x31C2) package type or version differs", "12740 (0x31C4) an element unreadable"},
     "Checks a vercfg.xml's Product/PackageType and Product/Version against the expected ones.", {badcount = 1})
risk("qav_RiskCheckReport", "QAV_RiskCheckReport", "checkcode:integer, eventtext1:string, eventtext2:string", "code:integer",
     {"0 sent", "1 bad arguments or out of memory", "other: the component-id or event status"}, "Sends the risk-check event (0xD181004) with the check code; the event text is the two texts joined.", {badcount = 1, profile = {CID}})
risk("qav_RiskGetOSUpdMode", "QAV_RiskGetOSUpdMode", "", "mode:integer", {"0 always"}, "Returns the OS update mode: always 0.")
local CONS = {"0 passed", "1 bad arguments", "0x31C400 VNFC type missing, NeType unreadable or NE types differ", "0x31C420 Version unreadable or too long",
              "0x31C430 APPType unreadable or too long", "0x31C490 file integrity or type code check failed"}
risk("qav_CheckInfoFromXml", "QAV_CheckInfoFromXml", "pkgdir:string, checktype:boolean", "code:integer", CONS,
     "Checks <pkgdir>/vercfg.xml against the running environment (NE type, version, application type) and the integrity of its files.", {badcount = 1, profile = {MORLO}})
risk("qav_CheckModInfoFromXml", "QAV_CheckModInfoFromXml", "pkgdir:string, checktype:boolean", "code:integer", CONS,
     "Checks a module package's vercfg.xml against the running environment and the integrity of its files.", {badcount = 1, profile = {MORLO}})
risk("qav_GetSoftwareNumFromXml", "QAV_GetSoftwareNumFromXml", "xmlpath:string", "code:integer, count:integer",
     {"0 counted", "1 bad arguments", "12724 (0x31B4) version type unreadable or unknown (count 0)", "other: the count query's code"},
     "Counts the file nodes of the package's own version type in a vercfg.xml.", {badcount = 1})

-- Node, board and file information -------------------------------------------------------------
local function dev(name, entry, args, results, codes, what, more)
    fn({name = name, entry = entry, topic = "device", args = args, results = results, codes = codes, summary = what}, more)
end
local STORAGE = "`[storage] flash0` and `flash1` are the storage directories under the sandbox root (defaults /zakv8/main/home, /zakv8/main/flash1)"
dev("qav_GetIniValue", "QAV_GetIniValue", "section:string, key:string, file:string", "code:integer, value:string?",
    {"0 read", "1 bad arguments or value unreadable (one result)"}, "Reads a value from an INI file.", {badcount = 1})
dev("qav_GetVnfdPath", "QAV_GetVnfdPath", "", "code:integer, path:string",
    {"0 read, or no file (empty path)", "other: the reader's code (empty path)"},
    "Reads the VNFD path from \"../../../zakv8/data/vnfd_path_info.ini\" and deletes that file.")
dev("qav_GetMMBDLDHandle", "QAV_GetMMBDLDHandle", "mode:integer", "code:integer, path:string",
    {"0 read", "1 no file or no home path (empty path)", "other: the reader's code"},
    "Mode 1 reads (and deletes) the download path of \"..//bootfile/mmbftppath.ini\"; any other mode returns the home path followed by \"/vercfg.xml\".", {badcount = 1, profile = {"`[rpm] comm_home_path` is the home path answered for modes other than 1 (default /zakv8/main/home)"}})
dev("qav_GetCurVNFInfo", "QAV_GetCurVNFInfo", "", "code:integer, instanceid:string, name:string, vnfdid:string, version:string",
    {"0 read", "1 failure (empty texts)"}, "Returns the instance id, name, VNFD id and version of the current VNF.", {profile = {"`[vnf] instance_id`, `name`, `vnfd_id` and `version` are the four texts"}})
dev("qav_GetCurVNFCInfo", "QAV_GetCurVNFCInfo", "", "code:integer, instanceid:string, name:string, type:string",
    {"0 read", "1 failure (empty texts)"}, "Returns the instance id, name and type of the current VNFC.", {profile = {"`[vnfc] instance_id`, `name` and `type` are the three texts"}})
dev("qav_GetCurNEInfo", "QAV_GetCurNEInfo", "", "code:integer, id:string, name:string",
    {"0 read", "other: the package manager's code (empty texts)"}, "Returns the id and name of the current NE.", {profile = {"`[ne] id` and `name` are the two texts"}})
dev("qav_GetVEType", "QAV_GetNEType", "", "type:string|any", {"\"VNFC_TYPE\" unset: nothing pushed and one result declared, so the value below comes back"},
    "Returns the VNFC type from the environment variable \"VNFC_TYPE\".")
dev("qav_GetCurNodeInfo", "QAV_GetCurNodeInfo", "", "code:integer, interfaceid:string, nermversion:string",
    {"0 read", "1 \"CC_PKG_NAME\" missing or without '/', or vercfg.xml unreadable (empty texts)"},
    "Returns the product interface id and resource-manager version from the vercfg.xml of the package named by \"CC_PKG_NAME\".")
dev("qav_Belto_IpAddrToStr", "QAV_Belto_IpAddrToStr", "address:integer", "ok:integer, text:string",
    {"1 converted (1 means success here)", "0 failure or bad arguments (empty text)"}, "Formats an IPv4 address as dotted text.", {badcount = 0})
dev("qav_Belto_BinToAsc", "QAV_Belto_BinToAsc", "bytes:string, count:integer, lowercase:integer", "result:integer, text:string",
    {"0 bad arguments (empty text)", "otherwise the converter's result"}, "Writes the first count bytes (at most 22) as hexadecimal digits, upper case unless lowercase is non-zero, with the platform converter (at most 44 characters).", {badcount = 0})
dev("qav_GetBackupInfoState", "QAV_GetBackupInfoState", "", "code:integer, ownstate:integer, matestate:integer",
    {"0 read", "1 no backup-state service (states 2, 2)"}, "Returns the backup states of this board and of its mate.", {profile = {"`[backup] present` 0: no backup-state service (code 1, states 2, 2); `[backup] state1` and `state2` are the states"}})
dev("qav_get_last_pkg_info", "QAV_GetLastPkgInfo", "", "code:integer, version:string?",
    {"0 read (the text includes its terminating zero)", "-1 failure (one result)"}, "Returns the version of the last package.", {profile = {"`[rpm] last_rpg_version` is the version (default V100R001C00SPC100)"}})
dev("qav_GetCurPkgVersion", "QAV_GetCurPkgVersion", "", "code:integer, version:string?",
    {"0 read", "other: the package manager's code (one result)"}, "Returns the version of the current package.", {profile = {"`[rpm] cur_pkg_version` is the version (default V100R001C00SPC200)"}})
dev("qav_GetNPSDiskSizeInfo", "QAV_GetNPSDiskSizeInfo", "section:string, key:string", "code:integer, value:string",
    {"0 read", "1 \"/boot/disk_cfg.ini\" unreadable", "2 value unreadable", "3 bad arguments"}, "Reads a value from \"/boot/disk_cfg.ini\".", {badcount = 3, profile = {"the sandbox's boot/disk_cfg.ini must exist (code 1 before the arguments are looked at)"}})
dev("qav_GetLocalFileSize", "QAV_GetLocalFileSize", "path:string", "status:integer, size:integer",
    {"0 measured", "1 missing path or lstat failed (size 0)"}, "Returns the size of a file (a link is measured itself).", {badcount = 1, ignoresextra = true})
dev("qav_GetLocalFilemTime", "QAV_GetLocalFilemTime", "path:string", "status:integer, mtime:string",
    {"0 read", "1 failure (empty text)"}, "Returns the modification time of a file in the ctime form.", {badcount = 1, ignoresextra = true})
dev("qav_ZAK_IsFileExist", "ZAK_IsFileExist", "path:string", "result:integer", {"0 exists", "0xFFFFFFFF missing"}, "Tells whether a file exists.", {badcount = 0xFFFFFFFF, ignoresextra = true})
dev("qav_ZAK_RemoveFile", "ZAK_RemoveFile", "path:string", "result:integer", {"0 always"}, "Removes a file; the outcome is not reported.")
dev("qav_ZAK_RenameFile", "ZAK_RenameFile", "old:string, new:string", "result:integer",
    {"0 attempted (a failed rename is not reported)", "0xFFFFFFFF a path missing"}, "Renames a file.", {badcount = 0xFFFFFFFF, ignoresextra = true})
dev("qav_chownfile", "QAV_ChownFile", "path:string, mode:string", "status:integer",
    {"0 done", "2 a text missing", "-1 chmod failed", "other: the ownership change's result"}, "Sets a file's mode (octal text, 0 means 0750) and gives it to the platform's service account.", {badcount = 2, ignoresextra = true, profile = {"`[accounts] service_user` and `service_group` are the account (empty: the running user and group)"}})
dev("qav_chownftpfile", "QAV_ChownFtpFile", "path:string, mode:string", "status:integer",
    {"0 done", "2 a text missing", "-1 chmod failed", "other: the ownership change's result"}, "Sets a file's mode (octal text, 0 means 0750) and gives it to the FTP account.", {badcount = 2, ignoresextra = true, profile = {"`[accounts] ftp_user` and `ftp_group` are the account"}})
dev("qav_linkfile", "QAV_LinkFile", "target:string, link:string", "status:integer",
    {"0 linked (also when the link path exists)", "2 a text missing", "-1 link failed"}, "Creates a symbolic link to the target.", {badcount = 2, ignoresextra = true})
dev("qav_getlinkfileinfo", "QAV_GetLinkFileInfo", "link:string", "status:integer, target:string?",
    {"0 read", "2 text missing", "11 not a symbolic link", "-1 lstat or readlink failed"}, "Returns the target of a symbolic link.", {badcount = 2, ignoresextra = true})
dev("qav_ZakPathToLinuxPath", "QAV_ZakPathToLinuxPath", "path:string", "code:integer, path:string?",
    {"0 converted (a rejected or empty path comes back unchanged)", "22 not one text (one result)", "other: the conversion's code (one result)"},
    "Converts a device path (flash0:...) to its Linux path.", {badcount = 22, profile = {STORAGE}})
dev("qav_LinuxPathToZakPath", "QAV_LinuxPathToZakPath", "path:string", "code:integer, path:string?",
    {"0 converted (a relative path comes back unchanged)", "22 not one text (one result)", "other: the conversion's code, with the input"},
    "Converts a Linux path to its device path.", {badcount = 22, profile = {STORAGE}})
dev("qav_IsUpgStatus", "QAV_IsUpgradeStatus", "", "code:integer, upgrading:boolean?",
    {"0 answered", "0xFFFFFFFF path too long (one result)", "other: the root path's code (one result)"},
    "Tells whether the upgrade flag file \"upgrade_flag.cfg\" exists beside the common root.")
dev("qav_NeedCMSCheck", "QAV_NeedCMSCheck", "text:string", "need:boolean", {}, "Tells whether a package needs its CMS signature checked.", {profile = {"`[cms] need_check` 0 answers false for everything; `[cms] check_suffixes` lists the name endings that need a check (default .zip,.rpg,.pat,.cpk)"}})
dev("qav_ZAK_StartupStampGetExt", "ZAK_StartupStampGetExt", "", "code:integer, word1:integer, word2:integer", {"0 always"},
    "Returns the startup stamp time as two 32-bit words.")
dev("qav_ZAK_StartupStampAddExt", "ZAK_StartupStampAddExt",
    "flag1:integer, flag2:integer, value1:integer, value2:integer, value3:integer, value4:integer, ...:integer|string", "result:integer",
    {"0 handed to the stamp store (whatever it returned)", "0xFFFFFFFF not 6 to 22 arguments, an item neither number nor text, or out of memory"}, "Adds a startup stamp record with up to 16 number or text items.", {badcount = 0xFFFFFFFF, maxargs = 22})
dev("qav_RecordUpgradeTimeStamp", "QAV_RecordUpgradeTimeStamp", "kind1:integer, kind2:integer, kind3:integer, text:string", "result:integer",
    {"0 recorded", "1000 bad arguments (a kind above 2 included)"}, "Records an upgrade time stamp of three kinds and a text.", {badcount = 1000})

-- Process and board control --------------------------------------------------------------------
local function proc(name, entry, args, results, codes, what, more)
    fn({name = name, entry = entry, topic = "process", args = args, results = results, codes = codes, summary = what}, more)
end
proc("qav_ZAK_GetHardType", "QAV_ZAK_GetHardType", "", "status:integer, hardtype:integer",
     {"0 read", "other: the platform's status (type 0)"}, "Returns the board hardware type.",
     {profile = {"`[board] hard_type` is the type (default 0x2001)"}})
proc("qav_ZAK_GetHardType_Inner", "QAV_ZAK_GetHardType_Inner", "", "status:integer, hardtype:integer",
     {"0 read", "other: the package manager's status (type 0)"}, "Returns the board hardware type through the package manager.",
     {profile = {"`[board] inner_hard_type` is the type (empty: the board's own `[board] hard_type`)"}})
proc("qav_ZAK_GetCpuTick", "QAV_ZAK_GetCpuTick", "", "word1:integer, word2:integer", {},
     "Returns the CPU tick count as two 32-bit words in the platform's order (the high word first on the host).",
     {profile = {"`[device] cpu_tick_hz` is the tick rate (default 1000000)"}})
proc("qav_GetCurrentProcessPath", "QAV_GetCurrentProcessPath", "", "status:integer, path:string",
     {"0 read", "other: the platform's status"}, "Returns the current path of the process.",
     {profile = {"`[device] process_path` is the path inside the sandbox (empty: the working directory)"}})
proc("qav_ResetBoardForNpuModeSwitch", "qav_ResetBoardForNpuModeSwitch", "mode:integer", "",
     {"not one argument: a bad result count (kept as it is)"},
     "Resets the board to switch its NPU mode; returns nothing (the host records the request: `zakhost.board_resets()`).")
local PROCCOUNT = {badcount = 0xFFFFFFFF}
proc("CreateProcess", "QAV_CreateProcess", "name:string, instance:integer, path:string, argv:string", "status:integer",
     {"0 requested", "0xFFFFFFFF bad arguments"}, "Asks the platform to create a process (the request is recorded).", PROCCOUNT)
proc("DeleteProcess", "QAV_DeleteProcess", "name:string, instance:integer", "status:integer",
     {"0 requested", "0xFFFFFFFF bad arguments"}, "Asks the platform to delete a process (the request is recorded).", PROCCOUNT)
proc("qav_GetSemlsStateByOsnode", "QAV_GetSemlsStateByOsnode", "board:string", "status:integer, components:table?",
     {"0 read", "0xFFFFFFFF bad argument or query failed (one result)"}, "Returns the component states of a board given as \"chassis/board\" or \"board\" (chassis 1).",
     {badcount = 0xFFFFFFFF,
      shapes = {components = shape("array of component entries, each an array of 4 items `{fid = k, value = integer}`, value the entry's k-th word; `{}` for a board without OS nodes",
                                   "{{{fid = 1, value = 3}, {fid = 2, value = 0}, {fid = 3, value = 1}, {fid = 4, value = 0}}}")}})
proc("qav_SU_IsCurDirVerSame", "QAV_SU_IsCurDirVerSame", "version:string", "result:integer",
     {"0 the working directory contains the text", "1 it does not", "2 error"}, "Tells whether the working directory path contains the version text.")

-- File access policy ---------------------------------------------------------------------------
local POLICYCOUNT = {badcount = 0x401C02, profile = {"`[tfsi] rule...` keys are the policy rules (see docs/host-platform/policy.md)"}}
fn({name = "qav_vfm_PolicyQuery", entry = "QAV_VfmPolicyQueryByGroup", topic = "policy", args = "user:table, count:integer, paths:table",
   results = "status:integer, access:table?", codes = {"0 queried", "0x401C02 bad arguments", "other: the policy service's code (one result)"},
   summary = "Queries the file access policy of a user for count paths ({oper, path}), returning per path \"fileAccess\", \"pathAccess\", \"detailType\", \"operAllow\", \"path\".",
   shapes = {user = shape("`{policyDeliverType, userLrID, userVrID, userID, userLevel, userGroup}`, all integers and all required",
                          "{policyDeliverType = 0, userLrID = 0, userVrID = 0, userID = 1, userLevel = 3, userGroup = 0}"),
             paths = shape("array of at least count `{oper = integer, path = string}`", "{{oper = 1, path = \"flash0:/sysdrv/boot.bin\"}}"),
             access = shape("array of count `{fileAccess, pathAccess, detailType, operAllow = integer, path = string}`, in the order of paths",
                            "{{fileAccess = 7, pathAccess = 7, detailType = 0, operAllow = 1, path = \"flash0:/sysdrv/boot.bin\"}}")}},
   POLICYCOUNT)
fn({name = "qav_vfm_FormatPath", entry = "QAV_VfmFormatPath", topic = "policy", args = "path:string, isdirectory:boolean",
   results = "status:integer, path:string?", codes = {"0 formatted", "0x401C02 bad arguments", "other: the formatter's code (one result)"},
   summary = "Formats a path the way the file access policy compares paths (a directory gets one trailing \"/\")."}, {badcount = 0x401C02})

-- Report notices -------------------------------------------------------------------------------
local NOTICE = {"0 sent", "5005 wrong argument count or unusable arguments", "other: the event log's status"}
local NOTICECOUNT = {badcount = 5005, profile = {CID}}
fn({name = "qav_ReportProcess", entry = "QAV_ReportProcess", topic = "reports", args = "stage:integer, progress:integer, description:string",
   results = "status:integer", codes = NOTICE, summary = "Sends a progress notice of an operation (progress in percent, 0 to 100)."}, NOTICECOUNT)
fn({name = "qav_ReportLogCollectFinish", entry = "QAV_ReportLogCollectFinish", topic = "reports", args = "session:integer, resultcode:integer, path:string",
   results = "status:integer", codes = NOTICE, summary = "Sends the notice that a log collection finished (result code 0: success), with the collected package's path."}, NOTICECOUNT)
fn({name = "qav_ReportVMCollectFinish", entry = "QAV_ReportVMCollectFinish", topic = "reports", args = "session:integer, resultcode:integer, vms:string",
   results = "status:integer", codes = NOTICE, summary = "Sends the notice that a VM information collection finished (result code 0: success)."}, NOTICECOUNT)
fn({name = "szak_setDelayVote", entry = "SZAK_SetDelayVote", topic = "reports", args = "delay:integer|boolean, seconds:integer",
   results = "status:integer", codes = NOTICE, summary = "Sends the HA delay-vote setting (delay 0 or 1, or a boolean)."}, NOTICECOUNT)

-- The logs each function writes to (failures among its lines), by log; a test fails on a line
-- written to a log its function does not name here. Under qavlua they are <root>/log/<log>.log;
-- a test reads them with zakhost.log_lines(<log>).
local LOGS = {
    upgrade = {"issu", "rpm_whorequire", "pat_startuppatchvalid", "rpm_issulog", "luafs_opendir",
        "qav_RpmGetVersionInfo", "qav_GetCurNodeInfo", "qav_GetIniValue", "qav_GetMimNumFromXml", "qav_Lock",
        "qav_UnLock", "qav_crlLock_lock", "qav_crlLock_unlock", "pat_GetHardtypeOfColdPatHardRst",
        "qav_get_tpmActiving_flag", "qav_set_tpmActiving_flag", "qav_RiskGetOSUpdMode"},
    patch = {"pat_event_log", "pat_write_log", "qav_trap_patcherror", "qav_RpmGetVersionInfo",
        "qav_RpmGetPatPkgInfo", "qav_GetFileNameFromVercfg", "qav_GetFileNameFromVercfgByDestObjType",
        "qav_AddRiskCheckResult", "qav_RiskCheckReport", "qav_InitRiskCheckXmlFile",
        "qav_RiskCheckParaCheck", "qav_GetInfoFromXml", "qav_GetMimNumFromXml", "qav_CheckInfoFromXml",
        "qav_CheckModInfoFromXml", "qav_GetSoftwareNumFromXml", "qav_GetFileInfoFromXml"},
    diag = {"qav_spt_fopen", "qav_spt_fread", "qav_spt_readnum", "qav_spt_readline", "qav_spt_fwrite",
        "luafs_rm", "luafs_cp", "luafs_mv", "luafs_mkdir", "qav_write_log", "qav_trap_slvswitchsuccess",
        "qav_ResetBoardForNpuModeSwitch", "qav_RpmGetVersionInfo", "qav_GetCurVNFInfo", "qav_GetCurVNFCInfo",
        "qav_GetCurNodeInfo", "qav_luaAssignPortID", "qav_luaSetCurPortID"},
    base = {"pat_event_log", "rpm_get_localtime", "qav_trap_flhsyncsuccess", "qav_trap_flhsyncfail",
        "qav_trap_clockchange", "qav_trap_UTCclockchange", "qav_trap_patcherror",
        "qav_trap_slvswitchsuccess", "qav_trap_slvswitchfail", "qav_trap_sumupgradesuccess",
        "qav_trap_sysissu", "qav_trap_sysreload", "qav_trap_sysimgerror", "qav_DecryptPassword_Enh",
        "qav_EncryptPassword_EnhExp", "qav_Crypt_Digest", "szak_setDelayVote", "qav_systimerelseccal",
        "qav_systimereldaycal", "qav_GetSystimeToSecond", "qav_SystimeSecToTime", "qav_SystimeCompare",
        "qav_GetGMTSystime", "qav_SystimeAddMilliSeconds", "qav_GetTimeOffset", "qav_GetTimeZoneOffset",
        "qav_SU_RecordExceptionLog", "rpm_get_gmtime", "qav_ReportProcess", "qav_ReportLogCollectFinish",
        "qav_ReportVMCollectFinish", "qav_RiskCheckReport", "qav_dbg_event_log", "qav_SHA_Digest"},
    syslog = {"qav_spt_fopen", "rpm_getpkginfo", "rpm_getcopyrightinfo", "rpm_getorigininfo",
        "rpm_getfilemd5val", "rpm_getfilemd5val_ext", "luafs_rm", "luafs_cp", "luafs_mv", "pat_event_log",
        "qav_trap_flhsyncsuccess", "qav_trap_flhsyncfail", "qav_trap_clockchange", "qav_trap_UTCclockchange",
        "qav_trap_patcherror", "qav_trap_sumupgradesuccess", "qav_trap_sysissu", "qav_trap_sysreload",
        "qav_trap_sysimgerror", "szak_setDelayVote", "qav_RpmGetVersionInfo", "qav_ReportProcess",
        "qav_RpmGetPatPkgInfo", "qav_GetIniValue", "qav_GetFileNameFromVercfg",
        "qav_GetFileNameFromVercfgByDestObjType", "qav_ReportLogCollectFinish", "qav_ReportVMCollectFinish",
        "qav_AddRiskCheckResult", "qav_RiskCheckReport", "qav_InitRiskCheckXmlFile",
        "qav_RiskCheckParaCheck", "qav_CheckInfoFromXml", "qav_CheckModInfoFromXml",
        "qav_GetSoftwareNumFromXml", "qav_Lock", "qav_dbg_event_log", "qav_SetApDLPkgLocalFileName",
        "qav_GetNPSDiskSizeInfo", "qav_LinuxPathToZakPath"},
    issu = {"rpm_issulog"},
    cms = {"pat_GetCrlPath"},
    sdm = {"sdm_write_log"},
    ha = {"pat_event_log", "qav_trap_flhsyncsuccess", "qav_trap_flhsyncfail", "qav_trap_clockchange",
        "qav_trap_UTCclockchange", "qav_trap_patcherror", "qav_trap_sumupgradesuccess", "qav_trap_sysissu",
        "qav_trap_sysreload", "qav_trap_sysimgerror", "CreateProcess", "DeleteProcess", "szak_setDelayVote",
        "qav_SU_RecordExceptionLog", "qav_ReportProcess", "qav_ReportLogCollectFinish",
        "qav_ReportVMCollectFinish", "qav_RiskCheckReport", "qav_dbg_event_log", "su_set_upgradeInfo",
        "qav_GetSemlsStateByOsnode", "su_RecordFaultBoard", "su_JudgeFaultBoardExist",
        "su_ClearFaultBoardInfo"},
    trace = {"pat_trace_log"},
}
local byName = {}
for _, f in ipairs(F) do byName[f.name] = f end
for log, names in pairs(LOGS) do
    for _, name in ipairs(names) do
        local f = assert(byName[name], name)
        f.logs = f.logs or {}
        f.logs[#f.logs + 1] = log
    end
end
for _, f in ipairs(F) do
    if f.logs then table.sort(f.logs) end
end


return catalogue
