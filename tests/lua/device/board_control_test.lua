-- Board and process control: hardware type, CPU ticks, process path, board reset, processes, components.
local T = require "testlib"
local zh = require "zakhost"
local m = libqavluacommon
local R = zh.root()


T.case("hardware type from the board record and the package manager's record", function()
    T.eq({ T.results(m.qav_ZAK_GetHardType()), T.results(m.qav_ZAK_GetHardType_Inner()) }, { { n = 2, 0, 0x2001 }, { n = 2, 0, 0x2001 } })
    zh.profile_set("board", "hard_type", "0x3005")
    zh.profile_set("board", "inner_hard_type", "0x9999")
    T.eq({ T.results(m.qav_ZAK_GetHardType()), T.results(m.qav_ZAK_GetHardType_Inner()) }, { { n = 2, 0, 0x3005 }, { n = 2, 0, 0x9999 } })
    zh.profile_set("board", "hard_type", "0x3005 x")
    T.eq(select(2, m.qav_ZAK_GetHardType()), 0, "a number with trailing text is no number")
    -- the type is pushed even on failure, then 0 from the zeroed record
    zh.inject("ZAK_GetHard_Info", 6)
    zh.inject("RPM_GetHardInfo_Inner", 4)
    T.eq({ T.results(m.qav_ZAK_GetHardType()), T.results(m.qav_ZAK_GetHardType_Inner()) }, { { n = 2, 6, 0 }, { n = 2, 4, 0 } })
    zh.profile_set("board", "hard_type", nil)
    zh.profile_set("board", "inner_hard_type", nil)
end)

T.case("CPU tick: high word first, moved by the clock", function()
    -- 2^32 ticks a second: the high word counts seconds
    zh.profile_set("device", "cpu_tick_hz", "4294967296")
    local hi1 = m.qav_ZAK_GetCpuTick()
    zh.clock_advance(5)
    local hi2 = m.qav_ZAK_GetCpuTick()
    T.ok(hi2 - hi1 >= 5 and hi2 - hi1 <= 6, "high word moved by " .. (hi2 - hi1))
    zh.profile_set("device", "cpu_tick_hz", nil)
    local _, l1 = m.qav_ZAK_GetCpuTick()
    zh.clock_advance(1)
    local _, l2 = m.qav_ZAK_GetCpuTick()
    local delta = (l2 - l1) % 4294967296
    T.ok(delta >= 1000000 and delta < 2000000, "one second of microsecond ticks, got " .. delta)
    zh.inject("ZAK_GetCpuTick", 1)
    T.eq(T.results(m.qav_ZAK_GetCpuTick()), { n = 2, 0, 0 })
end)

T.case("current process path", function()
    local code, path = m.qav_GetCurrentProcessPath()
    T.ok(code == 0 and path:sub(-#"/zakv8/main/bin") == "/zakv8/main/bin", path)
    zh.profile_set("device", "process_path", "/opt/app")
    T.eq(T.results(m.qav_GetCurrentProcessPath()), { n = 2, 0, R .. "/opt/app" })
    zh.inject("ZAK_GetProcessCurrentPath", 3)
    T.eq(T.results(m.qav_GetCurrentProcessPath()), { n = 2, 3, "" })
    zh.profile_set("device", "process_path", nil)
end)

T.case("board reset for an NPU mode switch is traced and recorded, never carried out", function()
    zh.board_resets(true)
    T.eq(T.results(m.qav_ResetBoardForNpuModeSwitch(3)), { n = 0 })
    T.eq(zh.board_resets(), { 3 })
    T.has_line(zh.log_lines("diag"), "Reset Board by NPU switch mode 0x3)")
    -- a wrong count reports 0xFFFFFFFF results without pushing; the engine takes the stack
    T.eq(T.results(m.qav_ResetBoardForNpuModeSwitch(1, 2)), { n = 2, 1, 2 })
    T.eq({ zh.board_resets(true), (zh.board_resets()) }, { { 3 }, {} })
end)

T.case("CreateProcess validates and logs; nothing is started", function()
    local name = string.rep("n", 40)
    T.eq(T.results(m.CreateProcess(name, 7, "/opt/bin/app", "-x 1")), { n = 1, 0 })
    T.has_line(zh.log_lines("ha"),
        "[QAV_CreateProcess]:process name:" .. name .. ",instanceId:7,program path:/opt/bin/app,process argv:-x 1,uiRet=0,iRetCount=1.")
    T.eq(T.results(m.CreateProcess({}, 7, "/p", "-x")), { n = 1, 0xFFFFFFFF })
    -- the HA log level gates the line
    zh.log_clear()
    zh.profile_set("log", "ha_level", "4")
    T.eq({ T.results(m.CreateProcess("p", 1, "/p", "")), zh.log_lines("ha") }, { { n = 1, 0 }, {} })
    zh.profile_set("log", "ha_level", nil)
end)

T.case("DeleteProcess validates and logs below level 6", function()
    T.eq({ T.results(m.DeleteProcess("proc", 9)), zh.log_lines("ha") }, { { n = 1, 0 }, {} }, "level 5 line dropped by the default HA level 3")
    zh.profile_set("log", "ha_level", "5")
    T.eq(T.results(m.DeleteProcess("proc", 9)), { n = 1, 0 })
    T.has_line(zh.log_lines("ha"), "[QAV_DeleteProcess]: process name: proc, instanceId:9.")
    zh.log_clear()
    zh.profile_set("log", "ha_level", "6")
    T.eq({ T.results(m.DeleteProcess("proc", 9)), zh.log_lines("ha") }, { { n = 1, 0 }, {} }, "not written at level 6")
    zh.profile_set("log", "ha_level", nil)
    T.eq({ T.results(m.DeleteProcess("proc")), T.results(m.DeleteProcess({}, 1)) }, { { n = 1, 0xFFFFFFFF }, { n = 1, 0xFFFFFFFF } })
end)

local function entry(type, cid, node, state)
    return { { fid = 1, value = type }, { fid = 2, value = cid }, { fid = 3, value = node }, { fid = 4, value = state } }
end

T.case("component states of a board from the default database", function()
    local board2 = {
        entry(206, 0x10CE0001, 0x01010201, 1),
        entry(206, 0x10CE0002, 0x01010201, 2),
        entry(205, 0x10CD0001, 0x01010202, 1),
    }
    T.eq({ T.results(m.qav_GetSemlsStateByOsnode("1/2")), T.results(m.qav_GetSemlsStateByOsnode("2")) },
        { { n = 2, 0, board2 }, { n = 2, 0, board2 } }, "chassis 1 by default")
    T.eq(T.results(m.qav_GetSemlsStateByOsnode("1")), { n = 2, 0, { entry(204, 0x10CC0001, 0x01010101, 1) } })
    T.eq(T.results(m.qav_GetSemlsStateByOsnode("2/2")), { n = 2, 0, {} }, "no node in chassis 2")
    local before = zh.memory().blocks
    T.eq({ T.results(m.qav_GetSemlsStateByOsnode("9")), T.results(m.qav_GetSemlsStateByOsnode("4294967295")) },
        { { n = 2, 0, {} }, { n = 2, 0, {} } }, "the largest board number")
    T.eq(zh.memory().blocks, before, "both buffers freed")
end)

T.case("component states: bad board texts", function()
    for _, text in ipairs({ "x", "1/", "/2", "1/2/3", "-1", "", "4294967296", "123456789012345" }) do
        T.eq(T.results(m.qav_GetSemlsStateByOsnode(text)), { n = 1, 0xFFFFFFFF }, text)
    end
    T.no_line(zh.log_lines("ha"), "strcpy failed")
    T.eq(T.results(m.qav_GetSemlsStateByOsnode("1234567890123456")), { n = 1, 0xFFFFFFFF })
    T.has_line(zh.log_lines("ha"), "QAV_GetSemlsStateByOsnode strcpy failed.")
end)

T.case("component states: every failing service gives 0xFFFFFFFF and frees both buffers", function()
    local before = zh.memory().blocks
    local failures = {
        { "QAV_GetOsNodeListByBoardId" }, { "ZAK_GetHard_Info" }, { "ZAK_GetEnvValue" },
        { "CMF_GetTabIdByClassId" }, { "CMF_DBGetRecNum" }, { "CMF_DBSelectAllRec" },
        { "ZAK_Malloc_F" }, { "ZAK_Malloc_F", 1 }, { "CMF_GetPIDByOsNode" }, { "CMF_GetPIDByOsNode", 1 },
        { "DMS_CamCompAddrInfoGetByCsi" }, { "DMS_CamCompAddrInfoGetByCpi" },
    }
    for _, f in ipairs(failures) do
        zh.inject(f[1], 0x55, f[2] or 0)
        T.eq(T.results(m.qav_GetSemlsStateByOsnode("2")), { n = 1, 0xFFFFFFFF }, f[1] .. " skip " .. (f[2] or 0))
        T.eq(zh.memory().blocks, before, f[1] .. " leaked")
        zh.inject()
    end
    -- a CSI must have one or two instances
    for _, csi in ipairs { "1,1,1,1;2,2,2,2;3,3,3,3", "" } do
        zh.profile_set("dms_csi", "5", csi)
        T.eq(T.results(m.qav_GetSemlsStateByOsnode("2")), { n = 1, 0xFFFFFFFF }, csi)
    end
    zh.profile_set("dms_csi", "5", "7,8,9,10")
    T.eq(T.results(m.qav_GetSemlsStateByOsnode("2")),
        { n = 2, 0, { entry(7, 8, 9, 10), entry(205, 0x10CD0001, 0x01010202, 1) } })
    zh.profile_set("dms_csi", "5", nil)
    T.eq(zh.memory().blocks, before)
end)

T.case("component states of a board the profile describes", function()
    zh.profile_set("board", "shelf", "3")
    zh.profile_set("cmf_table_46", "rec9", "0x03000701,1,1,0,2,3,7")
    zh.profile_set("cmf_pid", "0x03000701", "-7")
    zh.profile_set("dms_cpi", "-7", "300,0x30000001,0x03000701,3")
    T.eq(T.results(m.qav_GetSemlsStateByOsnode("2/7")), { n = 2, 0, { entry(300, 0x30000001, 0x03000701, 3) } })
    -- the local shelf selects: board 2 of shelf 0 is not on shelf 3
    T.eq(T.results(m.qav_GetSemlsStateByOsnode("1/2")), { n = 2, 0, {} })
    -- a node the pid table does not know fails the whole query
    zh.profile_set("cmf_pid", "0x03000701", nil)
    T.eq(T.results(m.qav_GetSemlsStateByOsnode("2/7")), { n = 1, 0xFFFFFFFF })
end)

T.case("qav_SU_IsCurDirVerSame is a substring test on the working directory", function()
    -- "kv8/ma": not a component match
    T.eq({ T.results(m.qav_SU_IsCurDirVerSame("main/bin")), T.results(m.qav_SU_IsCurDirVerSame("kv8/ma")),
        T.results(m.qav_SU_IsCurDirVerSame("no-such-version-dir")), T.results(m.qav_SU_IsCurDirVerSame()) },
        { { n = 1, 0 }, { n = 1, 0 }, { n = 1, 1 }, { n = 1, 2 } })
end)

T.run()
