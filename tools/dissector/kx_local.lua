-- Messages between the processes of an access point, and requests to its driver.
--
-- Returns a function, so that nothing happens when the file is loaded as a plugin of its own. It returns the dissectors
-- by the names of their protocols; each is called with tvb, pinfo and tree.
return function(tools, layouts, dissect_message)

local fields, report, add_fields, info = tools.fields, tools.report, tools.add_fields, tools.info
local add_structure, add_rest = tools.add_structure, tools.add_rest

local local_messages = {}  -- id -> list
for _, each in ipairs(layouts.local_messages) do
    local_messages[each.id] = local_messages[each.id] or {}
    table.insert(local_messages[each.id], each)
end

-- Nil when no message has this id, or its payload begins with an unknown number.
local function find_local_message(tvb, id, at)
    for _, each in ipairs(local_messages[id] or {}) do
        if each.kind_word == 0 or tvb:len() >= at + 4 and tvb(at, 4):uint() == each.kind_word then
            return each
        end
    end
end

-- A part that is a whole message is dissected.
local function add_part(tree, pinfo, tvb, at, payload)
    if at == tvb:len() then
        return
    end
    local total, offset = tvb(payload + 4, 4):uint(), tvb(payload + 8, 4):uint()
    if offset == 0 and total == tvb:len() - at then
        dissect_message(tvb(at):tvb(), pinfo, tree, false)
    else
        tree:add(fields.part, tvb(at))
    end
end

local tails = {
    interface_name = function(tree, _, tvb, at) tree:add(fields.interface, tvb(at), tools.text_of(tvb(at))) end,
    vap_name = function(tree, _, tvb, at) tree:add(fields.vap, tvb(at), tools.text_of(tvb(at))) end,
    data = function(tree, _, tvb, at) tree:add(fields.data, tvb(at)) end,
    log_configuration = function(tree, _, tvb, at) tree:add(fields.log_configuration, tvb(at)) end,
    message_part = add_part,
    [""] = function(tree, _, tvb, at) tree:add(fields.trailing, tvb(at)) end,
}

local function dissect_local(tvb, pinfo, tree)
    local header = layouts.structures.ipc_hdr
    if add_structure(tree, pinfo, tvb, 0, "ipc_hdr") < header.size or tvb:len() < header.size then
        return
    end
    if tvb(4, 4):uint() ~= tvb:len() - header.size then
        report(tree, pinfo, tvb(4, 4), "payload length " .. tvb(4, 4):uint() .. " in a message of " .. tvb:len() ..
               " bytes")
    end
    local id = tvb(0, 4):uint()
    local message = find_local_message(tvb, id, header.size)
    if not message then
        report(tree, pinfo, tvb(0, 4), "unknown local message " .. id)
        add_rest(tree, tvb, header.size, "trailing")
        return
    end
    info(pinfo, message.name)
    local at = header.size
    if message.structure == "captive_message" then
        at = add_structure(tree, pinfo, tvb, 0, message.structure)
    elseif message.structure then
        at = add_structure(tree, pinfo, tvb, at, message.structure)
    end
    if at < tvb:len() then
        tails[message.tail or ""](tree, pinfo, tvb, at, header.size)
    end
end

local function dissect_apcomm(tvb, pinfo, tree)
    local at = add_structure(tree, pinfo, tvb, 0, "apcomm_packet")
    if at < tvb:len() then
        dissect_message(tvb(at):tvb(), pinfo, tree, true)
    end
end

-- --- requests to the driver

local driver_calls = {}
for _, each in ipairs(layouts.driver_calls) do
    driver_calls[each.request] = each
end

local function dissect_driver_request(tvb, pinfo, tree)
    local at = add_structure(tree, pinfo, tvb, 0, "driver_request")
    if tvb:len() < layouts.structures.driver_request.size then
        return
    end
    local call = driver_calls[tools.host_number(tvb(0, 4))]
    if call then
        info(pinfo, call.name)
        at = call.sent and add_structure(tree, pinfo, tvb, at, call.sent) or at
    else
        report(tree, pinfo, tvb(0, 4), "unknown request to the driver")
    end
    add_rest(tree, tvb, at, "trailing")
end

-- A reply does not name its request: 6 bytes are a BSSID, others stations.
local function dissect_driver_reply(tvb, pinfo, tree)
    local at = add_structure(tree, pinfo, tvb, 0, "driver_reply")
    if tvb:len() - at == 6 then
        tree:add(fields.bssid, tvb(at))
        return
    end
    local size = layouts.structures.driver_station.size
    while tvb:len() - at >= size do
        local length = tools.host_number(tvb(at, 2))
        if length < size or length > tvb:len() - at then
            report(tree, pinfo, tvb(at, 2), "station record of " .. length .. " bytes")
            break
        end
        add_fields(tree:add(fields.entry, tvb(at, length)), tvb, at, size, layouts.structures.driver_station.fields)
        at = at + length
    end
    add_rest(tree, tvb, at, "trailing")
end

return {kx_local = dissect_local, kx_apcomm = dissect_apcomm, kx_driver_request = dissect_driver_request,
        kx_driver_reply = dissect_driver_reply}

end
