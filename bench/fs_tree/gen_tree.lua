-- Writes the benchmark tree: `files` regular files of mixed sizes (about `megabytes` MB in all)
-- in two levels of directories, plus symbolic and hard links.
-- usage: lua gen_tree.lua ROOT FILES MEGABYTES
local root, files, megabytes = arg[1], tonumber(arg[2]), tonumber(arg[3])
assert(root and files and megabytes, "usage: gen_tree.lua ROOT FILES MEGABYTES")

-- Size classes: 95% small, 4.8% medium, 0.2% large; the large ones take what is left.
local small, medium = math.floor(files * 0.95), math.floor(files * 0.048)
local large = math.max(files - small - medium, 1)
local budget = megabytes * 1024 * 1024
local small_avg, medium_avg = 4 * 1024, 256 * 1024
local large_avg = math.max(math.floor((budget - small * small_avg - medium * medium_avg) / large), 1)

local seed = 12345
local function rand(n) -- deterministic, so every run builds the same tree
    seed = (seed * 1103515245 + 12345) % 2147483648
    return seed % n
end
local chunk = {}
for i = 1, 64 do chunk[i] = string.char(32 + rand(90)) end
chunk = string.rep(table.concat(chunk), 1024) -- 64 KiB of printable bytes

local function write(path, size)
    local f = assert(io.open(path, "wb"))
    while size > 0 do
        local n = math.min(size, #chunk)
        f:write(chunk:sub(1, n))
        size = size - n
    end
    f:close()
end

local dirs = math.max(math.floor(files / 100), 1)
local total, written = 0, 0
os.execute("mkdir -p " .. root)
for d = 0, dirs - 1 do
    local dir = string.format("%s/d%02d/s%02d", root, math.floor(d / 10), d % 10)
    os.execute("mkdir -p " .. dir)
end
for i = 0, files - 1 do
    local d = i % dirs
    local path = string.format("%s/d%02d/s%02d/f%05d", root, math.floor(d / 10), d % 10, i)
    local size
    if i % 500 == 0 and large > 0 then
        size, large = math.floor(large_avg / 2) + rand(large_avg), large - 1
    elseif i % 20 == 1 then
        size = math.floor(medium_avg / 2) + rand(medium_avg)
    else
        size = rand(2 * small_avg)
    end
    write(path, size)
    total = total + size
    written = written + 1
end
-- One symbolic link per 40 files (some dangling) and one hard link per 200.
local links = 0
for i = 0, files - 1, 40 do
    local d = i % dirs
    local dir = string.format("%s/d%02d/s%02d", root, math.floor(d / 10), d % 10)
    local target = (i % 400 == 0) and "missing" or string.format("f%05d", i)
    os.execute(string.format("ln -s %s %s/l%05d", target, dir, i))
    links = links + 1
    if i % 200 == 0 then
        os.execute(string.format("ln %s/f%05d %s/h%05d", dir, i, dir, i))
        links = links + 1
    end
end
print(string.format("tree: %d files, %d links, %d directories, %.1f MB", written, links, dirs, total / 1048576))
