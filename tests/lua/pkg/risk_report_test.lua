-- The risk-check report file, the package parameter check and the risk-check event.
local T = require "testlib"
local F = require "pkg_fixtures"
local X = require "xmlread"
local zh = require "zakhost"
local m = libqavluacommon

local report = F.root .. "/report.xml"

local function items_of(group)
    local out = {}
    for _, items in ipairs(group.children) do
        T.eq(items.name, "Items")
        local row = { index = items.attrs.index }
        T.eq(X.names(items), { "Item", "Item", "Item", "Item" })
        for i, item in ipairs(items.children) do row[i] = { item.attrs.name, item.text or "" } end
        out[#out + 1] = row
    end
    return out
end

T.case("a new report holds the root and the NE element", function()
    T.eq(T.results(m.qav_InitRiskCheckXmlFile(report, "NE-01", "ne item")), { n = 1, 0 })
    local root, declaration = X.parse_file(report)
    T.ok(declaration:find('version="1.0"', 1, true) and declaration:find('encoding="UTF-8"', 1, true), declaration)
    T.eq({ root.name, X.names(root), root.children[1].text, root.children[1].attrs },
        { "RiskCheck", { "NeName" }, "NE-01", { name = "ne item" } })
    T.ok(F.read(report):find("\n  <NeName", 1, true), "written indented")
end)

T.case("an NE name too long for its buffer is reported and the report made with what the copy left", function()
    T.eq(m.qav_InitRiskCheckXmlFile(report, string.rep("n", 128), "item"), 0)
    T.has_line(zh.log_lines("syslog"), "FUNC(QAV_GetAndCheckXmlFileInitInfoFromInput) return ")
    local root = X.parse_file(report)
    T.eq(root.children[1].text, nil, "the failed bounded copy leaves an empty text")
    T.eq(root.children[1].attrs.name, "item")
end)

T.case("results are numbered per group; groups follow in order of first use", function()
    T.eq(m.qav_InitRiskCheckXmlFile(report, "NE", "item"), 0)
    T.eq({ m.qav_AddRiskCheckResult(report, "Disk", "space", "disk is full", "stop", "clean it"),
        m.qav_AddRiskCheckResult(report, "Disk", "inodes", "few left", "warn", "remove files"),
        m.qav_AddRiskCheckResult(report, "Link", "peer", "down", "stop", "fix link") }, { 0, 0, 0 })
    local root = X.parse_file(report)
    T.eq(X.names(root), { "NeName", "Disk", "Link" })
    local disk, link = items_of(root.children[2]), items_of(root.children[3])
    T.eq(disk[1], { index = "1", { "Check Item", "space" }, { "Description", "disk is full" }, { "Action Type", "stop" }, { "Solution", "clean it" } })
    T.eq({ #disk, disk[2].index, disk[2][4][2], #link, link[1].index, link[1][1][2] }, { 2, "2", "remove files", 1, "1", "peer" })
end)

T.case("a result under NeName lands in the element made at creation, after its text", function()
    T.eq(m.qav_InitRiskCheckXmlFile(report, "NE7", "item"), 0)
    T.eq(m.qav_AddRiskCheckResult(report, "NeName", "c", "d", "a", "s"), 0)
    local root = X.parse_file(report)
    local ne = root.children[1]
    T.eq({ X.names(root), ne.text:find("NE7", 1, true), #items_of(ne) }, { { "NeName" }, 1, 1 }, "text kept first")
end)

T.case("texts are cut to their limits; entity references in texts are interpreted, attributes escaped", function()
    T.eq(m.qav_InitRiskCheckXmlFile(report, "A &amp; B", "x&y<z>\"q\""), 0)
    local long = string.rep("d", 1500)
    T.eq(m.qav_AddRiskCheckResult(report, "G", string.rep("c", 200), long, "&lt;act&gt;", string.rep("s", 1024)), 0)
    local root = X.parse_file(report)
    T.eq({ root.children[1].text, root.children[1].attrs.name }, { "A & B", 'x&y<z>"q"' })
    local row = items_of(root.children[2])[1]
    T.eq({ #row[1][2], row[2][2], row[3][2], #row[4][2] }, { 127, string.rep("d", 1023), "<act>", 1023 })
    -- A cut never splits a UTF-8 character, so the report stays readable for the next addition.
    T.eq(m.qav_AddRiskCheckResult(report, "G", string.rep("中", 100), string.rep("é", 700), "a",
        string.rep("s", 1021) .. "\xF0\x90\x8D\x88"), 0)
    T.eq(m.qav_AddRiskCheckResult(report, "G", "c", "d", "a", "s"), 0)
    local rows = items_of(X.parse_file(report).children[2])
    T.eq({ rows[2][1][2], rows[2][2][2], rows[2][4][2], rows[3].index },
        { string.rep("中", 42), string.rep("é", 511), string.rep("s", 1021), "3" })
end)

T.case("a report that is not a RiskCheck document is never changed", function()
    local content = '<?xml version="1.0"?>\n<Other><NeName>x</NeName></Other>\n'
    F.write(report, content)
    T.eq({ m.qav_AddRiskCheckResult(report, "G", "c", "d", "a", "s"), F.read(report) }, { 1, content })
    T.has_lines(F.patch_log(), { "Root element name error, 'Other' should be 'RiskCheck'!", "Check xml file(" .. report .. ") fail!" })
    F.write(report, "not xml at all")
    T.eq({ m.qav_AddRiskCheckResult(report, "G", "c", "d", "a", "s"), F.read(report) }, { 1, "not xml at all" })
    T.has_line(F.patch_log(), "There is no xml:(" .. report .. ")!")
    T.eq({ m.qav_AddRiskCheckResult(F.root .. "/absent.xml", "G", "c", "d", "a", "s"), F.exists(F.root .. "/absent.xml") }, { 1, false })
end)

T.case("bad argument lists give 1 with the reason", function()
    local mark = T.mark("patch")
    T.eq(T.results(m.qav_InitRiskCheckXmlFile(report, "NE")), { n = 1, 1 })
    T.has_line(T.since(mark), " L3 QAV_GetAndCheckXmlFileInitInfoFromInput failed, ret is 1.")
    T.has_line(F.patch_log(), "Format path ParaNum 2 wrong.")
    T.eq({ m.qav_InitRiskCheckXmlFile(report, {}, "i"), m.qav_InitRiskCheckXmlFile(report, "n", nil) }, { 1, 1 })
    T.has_lines(F.patch_log(), { "get NeName failed.", "get NeItemName failed." })
    T.eq(m.qav_InitRiskCheckXmlFile(report, "n", "i"), 0)
    T.eq({ T.results(m.qav_AddRiskCheckResult(report, "G", "c", "d", "a")),
        m.qav_AddRiskCheckResult(report, "G", "c", {}, "a", "s") }, { { n = 1, 1 }, 1 })
    T.has_lines(F.patch_log(), { "Format path ParaNum 5 wrong.", "get xml description failed.", "QAV_SetXmlNodeContentGetInput failed, ret is 1." })
    local sys = T.mark("syslog")
    T.eq({ m.qav_AddRiskCheckResult(report, string.rep("g", 128), "c", "d", "a", "s"), X.names(X.parse_file(report)) }, { 1, { "NeName" } })
    T.has_line(T.since(sys), "FUNC(QAV_SetXmlNodeContentGetInput) return ")
end)

T.case("platform failures: save, owner change, allocation, node creation", function()
    local before, mark = zh.memory().blocks, T.mark("patch")
    zh.inject("ZAK_Adapt_xmlSaveFormatFileEnc", -1)
    T.eq(m.qav_InitRiskCheckXmlFile(report, "n", "i"), 1)
    zh.inject("P_ZAK_Chown2ZAK")
    T.eq(m.qav_InitRiskCheckXmlFile(report, "n", "i"), 0)
    T.eq(T.since(mark), { "0x00000000 L3 xmlSaveFile failed, ret is 4294967295.",
                          "0x00000000 L3 QAV_CreateRiskCheckXmlFile failed, ret is 1.",
                          "0x00000000 L4 Failed to change owner. File:" .. report .. "." })
    zh.inject("ZAK_Malloc_F")
    T.eq(m.qav_AddRiskCheckResult(report, "G", "c", "d", "a", "s"), 1)
    T.has_line(F.patch_log(), "malloc failed!")
    for _, f in ipairs { { "ZAK_Adapt_xmlNewChild", 0, 2 }, { "ZAK_Adapt_xmlSaveFormatFileEnc", -1, 0 } } do
        zh.inject(f[1], f[2], f[3])
        T.eq({ m.qav_AddRiskCheckResult(report, "G", "c", "d", "a", "s"), X.names(X.parse_file(report)) }, { 1, { "NeName" } },
            "a failed addition is not saved: " .. f[1])
    end
    -- A real write failure: libxml2's own message and the path with the reason go to syslog.
    T.eq(m.qav_InitRiskCheckXmlFile(report .. "/r.xml", "n", "i"), 1)
    T.has_lines(zh.log_lines("syslog"), { "libxml2 I/O error: Not a directory", "cannot write " .. report .. "/r.xml: Not a directory" })
    T.eq(zh.memory().blocks, before)
end)

T.case("package parameter check against Product/PackageType and Product/Version", function()
    local v = "V100R001C10SPC200B010" .. string.rep("x", 11) -- 32 characters
    local dir = F.package({}, "--set", "PackageType=VNFC", "--set", "Version=" .. v .. "AAA")
    local xml = dir .. "/vercfg.xml"
    -- Versions are compared over 32 characters: a difference after them passes.
    T.eq(T.results(m.qav_RiskCheckParaCheck(xml, "VNFC", v .. "BBB")), { n = 1, 0 })
    T.eq({ m.qav_RiskCheckParaCheck(xml, "VNF", v), m.qav_RiskCheckParaCheck(xml, "VNFC", "V1") }, { 12738, 12738 })
    T.has_lines(F.patch_log(), { "the PackageType(VNF) is diff from vercfg.xml(VNFC)",
        "the Version(V1) is diff from vercfg.xml(" .. v .. "AAA)" })
    local noVersion = F.package({}, "--omit", "Version")
    T.eq({ m.qav_RiskCheckParaCheck(noVersion .. "/vercfg.xml", "VNFC", "V1"),
        m.qav_RiskCheckParaCheck(F.root .. "/none.xml", "VNFC", "V1") }, { 12740, 12740 })
    T.has_lines(F.patch_log(), { "Get Version from file(" .. noVersion .. "/vercfg.xml) fail! RetCode:",
        "Get PackageType from file(" .. F.root .. "/none.xml) fail! RetCode:" })
    T.eq(m.qav_RiskCheckParaCheck(xml, {}, "V"), 1)
    T.has_lines(F.patch_log(), { "String param 2 is null", "QAV_RiskCheckParaCheckGetInput failed, ret is 1." })
end)

T.case("risk-check event carries the check code element and the joined texts", function()
    local before = #zh.events()
    T.eq(T.results(m.qav_RiskCheckReport(0x12345678, "disk ", "full")), { n = 1, 0 })
    local events = zh.events()
    local e = events[#events]
    T.eq(#events, before + 1)
    T.eq({ e.call, e.info, e.format, e.values }, { "QAV_EventLogCtrl", "0x0D181004", "%s%s", { "disk ", "full" } })
    -- type 1, length 2, the two low-order bytes of the code, each in the machine's byte order
    local little, big = "010002007856", "000100025678"
    if string.pack then
        local bytes = string.pack("=I2I2I2", 1, 2, 0x5678)
        T.eq(e.control, (bytes:gsub(".", function(c) return string.format("%02x", c:byte()) end)))
    else
        T.ok(e.control == little or e.control == big, e.control)
    end
    zh.inject("QAV_EventLogCtrl", 9)
    T.eq({ m.qav_RiskCheckReport(1, "a", "b"), m.qav_RiskCheckReport(1, "a", {}) }, { 9, 1 })
    T.has_lines(F.patch_log(), { "String param 3 is null", "QAV_SCH_ReportProcessGetInput failed, ret is 1." })
    zh.inject("ZAK_Malloc_F", 0, 1)
    T.eq(m.qav_RiskCheckReport(1, "a", "b"), 1)
end)

T.case("the OS update mode is always 0", function()
    T.eq(T.results(m.qav_RiskGetOSUpdMode()), { n = 1, 0 })
    T.has_line(zh.log_lines("upgrade"), "[RiskCheck_OSMode]The result of Upd_mode from .sh is 0.")
end)

T.run()
