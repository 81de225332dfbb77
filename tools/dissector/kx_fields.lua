-- The fields of the protocol kx, made from the tables of kx_layouts.lua, and how they are added to a tree.
--
-- Returns a function, so that nothing happens when the file is loaded as a plugin of its own. It sets the fields, the
-- preferences and the expert information of `kx`, and returns what kx.lua uses.
return function(kx, layouts)

kx.prefs.port = Pref.uint("Controller's TCP port", 7443, "TLS connections to this port are dissected")
kx.prefs.show_pmks = Pref.bool("Show PMKs", false, "Otherwise only whether there is one")
kx.prefs.big_endian_host = Pref.bool("Big-endian access point", false, "The host's order in requests to the driver")


local names = {}  -- key -> value -> name
local bits = {}   -- key -> list of {value, name}
for _, each in ipairs(layouts.value_names) do
    local of = each.bit and bits or names
    of[each.key] = of[each.key] or {}
    if each.bit then
        table.insert(of[each.key], each)
    else
        of[each.key][each.value] = each.name
    end
end
names.type = {}
for type, each in pairs(layouts.records) do
    names.type[type] = each.name
end
names.frame_type = {}
for _, each in ipairs(layouts.own_frames) do
    names.frame_type[each.type] = each.name
end
names.local_id = {}
for _, each in ipairs(layouts.local_messages) do
    names.local_id[each.id] = each.name
end
names.request = {}
for _, each in ipairs(layouts.driver_calls) do
    names.request[each.request] = each.name
end

local acronyms = {ap = "AP", bssid = "BSSID", ip = "IP address", vlan = "VLAN", pmk = "PMK", acl = "ACL", mac = "MAC",
                  radius = "RADIUS", vap = "VAP", id = "ID", ssid = "SSID", pid = "PID", ifname = "interface",
                  ifindex = "interface index", op = "operation"}

local function label(key)
    local text = key:gsub("%a+", acronyms):gsub("_", " ")
    return text:sub(1, 1):upper() .. text:sub(2)
end

local makers = {
    number = function(name, key) return ProtoField.uint32(name, label(key), base.DEC, names[key]) end,
    count = function(name, key) return ProtoField.uint32(name, "Number of " .. key) end,
    mac = function(name, key) return ProtoField.ether(name, label(key)) end,
    ipv4 = function(name, key) return ProtoField.ipv4(name, label(key)) end,
    text = function(name, key) return ProtoField.string(name, label(key), base.UNICODE) end,
    bytes = function(name, key) return ProtoField.bytes(name, label(key)) end,
}
local maker_of = {number = "number", host_number = "number", count = "count", mac = "mac", mac_or_none = "mac",
                  ipv4 = "ipv4", text = "text", pmk = "bytes", data = "bytes", zero = "bytes", unused = "bytes"}

local fields = {}  -- key -> ProtoField
local maker_of_key = {}

local function declare(key, kind)
    local maker = assert(maker_of[kind], kind)
    assert(maker_of_key[key] == nil or maker_of_key[key] == maker, key)
    if fields[key] == nil then
        maker_of_key[key] = maker
        fields[key] = makers[maker]("kx." .. key, key)
    end
end

local function declare_all(list)
    for _, each in ipairs(list) do
        declare(each[1], each[2])
    end
end

for _, each in pairs(layouts.records) do
    declare_all(each.body)
    declare_all(each.entry)
end
for _, each in pairs(layouts.structures) do
    declare_all(each.fields)
end
for key, kind in pairs({frame_type = "number", frame_length = "number", end_reason = "text", interface = "text",
                        vap = "text", log_configuration = "data", part = "data", trailing = "data"}) do
    declare(key, kind)
end
for key, list in pairs(bits) do
    fields[key] = ProtoField.uint32("kx." .. key, label(key), base.HEX)
    for _, each in ipairs(list) do
        local short = each.name:lower():match("_(%a+)$")
        fields[key .. "." .. short] = ProtoField.bool("kx." .. key .. "." .. short, each.name, 32, nil, each.value)
        each.field = fields[key .. "." .. short]
    end
end
fields.to_controller = ProtoField.bool("kx.to_controller", "To the controller")
fields.record = ProtoField.none("kx.record", "Record")
fields.entry = ProtoField.none("kx.entry", "Entry")
fields.has_pmk = ProtoField.bool("kx.has_pmk", "PMK is present")
fields.pmk_hash = ProtoField.string("kx.pmk_hash", "Hash of the PMK, which the capture does not have")

kx.fields = fields
local malformed = ProtoExpert.new("kx.malformed", "Malformed", expert.group.MALFORMED, expert.severity.ERROR)
kx.experts = {malformed}

-- --- bytes

local function all_zero(range) return not range:raw():find("[^%z]") end

-- The text before its padding.
local function text_of(range) return (range:raw():gsub("%z+$", "")) end

local function hash_in(range) return range:raw():match("^(sha256:%x%x%x%x%x%x%x%x)%z+$") end

local function info(pinfo, text)
    pinfo.cols.info:append(" " .. text)
end

local function report(tree, pinfo, range, text)
    tree:add_tvb_expert_info(malformed, range, text)
    pinfo.cols.info:append(" [malformed]")
end

local function add_pmk(tree, range)
    local present = not all_zero(range)
    tree:add(fields.has_pmk, range, present):set_generated()
    local hash = hash_in(range)
    if hash then
        tree:add(fields.pmk_hash, range, hash)
    elseif present and kx.prefs.show_pmks then
        tree:add(fields.pmk, range)
    end
end

local function add_number(tree, key, range, little)
    local item = little and tree:add_le(fields[key], range) or tree:add(fields[key], range)
    for _, each in ipairs(bits[key] or {}) do
        item:add(each.field, range)
    end
end

local function host_number(range)
    if kx.prefs.big_endian_host then
        return range:uint()
    end
    return range:le_uint()
end

local adders = {
    pmk = function(tree, _, range) add_pmk(tree, range) end,
    host_number = function(tree, key, range) add_number(tree, key, range, not kx.prefs.big_endian_host) end,
    text = function(tree, key, range) tree:add(fields[key], range, text_of(range)) end,
    mac_or_none = function(tree, key, range)
        if not all_zero(range) then
            tree:add(fields[key], range)
        end
    end,
}
adders.number = add_number

-- Adds the fields that the `length` bytes at `at` have room for. Of data only as many bytes as their length says.
local function add_fields(tree, tvb, at, length, list)
    local used = math.huge
    for _, each in ipairs(list) do
        local key, kind, offset, width = each[1], each[2], each[3], each[4]
        if offset + width <= length then
            local range = tvb(at + offset, width)
            local add = adders[kind]
            if kind == "data" then
                if used > 0 then
                    tree:add(fields[key], range(0, math.min(used, width)))
                end
            elseif add then
                add(tree, key, range)
            else
                tree:add(fields[key], range)
            end
            if key == "data_length" then
                used = range:uint()
            elseif key == "driver_data_length" then
                used = host_number(range)
            end
        end
    end
end

local function add_structure(tree, pinfo, tvb, at, name)
    local of = layouts.structures[name]
    local length = tvb:len() - at
    add_fields(tree, tvb, at, length, of.fields)
    if length < of.size then
        report(tree, pinfo, tvb(at), name .. " of " .. length .. " bytes, expected " .. of.size)
    end
    return math.min(tvb:len(), at + of.size)
end

local function add_rest(tree, tvb, at, key)
    if at < tvb:len() then
        tree:add(fields[key], tvb(at))
    end
end

return {
    fields = fields, all_zero = all_zero, text_of = text_of, report = report, info = info, add_fields = add_fields,
    add_structure = add_structure, add_rest = add_rest, host_number = host_number,
}

end
