-- A small reader for the XML files the tests check: elements with attributes, their direct text
-- (named entities decoded, numeric references left as written) and their child elements in order.
local X = {}

local function decode(s)
    return (s:gsub("&(%w+);", function(body)
        local named = { amp = "&", lt = "<", gt = ">", quot = '"', apos = "'" }
        return named[body] or ("&" .. body .. ";")
    end))
end

local function attributes(text)
    local attrs = {}
    for name, quote, value in text:gmatch('([%w_:%-%.]+)%s*=%s*(["\'])(.-)%2') do
        attrs[name] = decode(value)
    end
    return attrs
end

-- Returns the root element: {name=, attrs=, text=, children={...}}, plus the XML declaration.
function X.parse(data)
    local declaration = data:match("^<%?xml(.-)%?>")
    local root = { children = {} }
    local stack = { root }
    local pos = 1
    while true do
        local s, e, closing, name, rest, selfClose = data:find("<(/?)([%w_:%-%.]+)(.-)(/?)>", pos)
        if not s then break end
        local text = data:sub(pos, s - 1)
        local top = stack[#stack]
        if not text:match("^%s*$") or top.text then
            top.text = (top.text or "") .. decode(text)
        end
        if closing == "/" then
            table.remove(stack)
        else
            local element = { name = name, attrs = attributes(rest), children = {} }
            top.children[#top.children + 1] = element
            if selfClose ~= "/" then stack[#stack + 1] = element end
        end
        pos = e + 1
    end
    local function strip(element)
        if element.text and element.text:match("^%s*$") and #element.children > 0 then element.text = nil end
        for _, c in ipairs(element.children) do strip(c) end
    end
    strip(root)
    return root.children[1], declaration
end

function X.parse_file(path)
    local f = io.open(path, "rb")
    if not f then return nil end
    local data = f:read("*a")
    f:close()
    return X.parse(data)
end

-- The names of an element's children, in order.
function X.names(element)
    local names = {}
    for _, c in ipairs(element.children) do names[#names + 1] = c.name end
    return names
end

return X
