-- What `make run` runs in a fresh device sandbox: the upgrade pre-check example. The other
-- examples run the same way (see README.md, "For script authors").
local count = 0
for _ in pairs(libqavluacommon) do count = count + 1 end
print(("libqavluacommon: %d script functions"):format(count))
print()
require "upgrade_precheck"
