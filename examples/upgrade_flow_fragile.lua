-- The upgrade flow of examples/upgrade_flow.lua with one unsafe change: the old version is
-- removed to free space before the boot record is switched to the new one. A power cut after the
-- removal has begun leaves a boot record naming a version that is gone: the device cannot boot.
--
--   qavlua sweep power-cut examples/upgrade_flow_fragile.lua --recover examples/upgrade_flow_recover.lua
--
-- reports exactly those cut points (the removal's own steps and the moment after it).
local F = require "upgrade_flow"
F.main("V2", "fragile")
