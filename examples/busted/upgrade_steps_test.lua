-- A device-script test written for busted and run with qavlua as its interpreter, so that the
-- library and the zakhost control module are there:
--
--   qavlua init /tmp/dev
--   qavlua --root /tmp/dev /usr/bin/busted "$PWD/examples/busted/upgrade_steps_test.lua"
--
-- (busted runs in the sandbox's bin directory: give the test file as an absolute path.)
local zh = require "zakhost"
local m = libqavluacommon

describe("the upgrade lock", function()
    after_each(function() m.qav_UnLock(1, nil) end)

    it("keeps a write lock for its duration and lets it lapse afterwards", function()
        assert.are.equal(0, m.qav_Lock(10, 1, nil))
        zh.clock_advance(10)
        assert.is_true(m.qav_IsLocked())
        zh.clock_advance(1)
        assert.is_false(m.qav_IsLocked())
        assert.are.equal(0, m.qav_Lock(10, 1, nil), "an expired lock is taken afresh")
    end)

    it("refuses a second writer and a reader while written", function()
        assert.are.equal(0, m.qav_Lock(60, 1, nil))
        assert.are.equal(2, m.qav_Lock(60, 1, nil))
        assert.are.equal(2, m.qav_Lock(60, 2, '"vm1"'))
    end)

    it("lets readers of different VMs share it and unlocks by the exact list", function()
        assert.are.equal(0, m.qav_Lock(60, 2, '"vm1"vm2"'))
        assert.are.equal(0, m.qav_Lock(60, 2, '"vm3"'))
        assert.are.equal(3, m.qav_Lock(60, 2, '"vm2"'), "vm2 is already locked")
        assert.are.equal(3, m.qav_UnLock(2, '"vm1"'), "unlocking needs the very list that was locked")
        assert.are.equal(0, m.qav_UnLock(2, '"vm1"vm2"'))
        assert.are.equal(0, m.qav_UnLock(2, '"vm3"'))
        assert.is_false(m.qav_IsLocked())
    end)
end)

describe("the software-management lock", function()
    it("ages out after the time its locker chose", function()
        assert.are.equal(0, m.qav_SWMLock(30))
        zh.clock_advance(30)
        assert.are.equal(2, m.qav_SWMLock(30))
        zh.clock_advance(1)
        assert.are.equal(0, m.qav_SWMLock(30))
        assert.are.equal(0, m.qav_SWMUnLock())
    end)
end)

describe("port assignment", function()
    it("hands out ports of an OS node in turn", function()
        local _, first = m.qav_luaAssignPortID(0x0ABC)
        local _, second = m.qav_luaAssignPortID(0x0ABC)
        assert.are.equal(41004, first)
        assert.are.equal(41005, second)
    end)

    it("reports a bad argument instead of raising", function()
        assert.are.same({2, 0}, {m.qav_luaAssignPortID("node")})
    end)
end)

describe("the upgrade log", function()
    it("records the upgrade lock's steps", function()
        zh.log_clear()
        m.qav_Lock(5, 1, nil)
        m.qav_UnLock(1, nil)
        local found = false
        for _, line in ipairs(zh.log_lines("upgrade")) do
            if line:find("set upgrade write_lock, result: 0", 1, true) then found = true end
        end
        assert.is_true(found)
    end)
end)
