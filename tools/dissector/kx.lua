-- Dissects what an access point and its controller send each other, and the local messages of an access point.
--
--   tshark -X lua_script:tools/dissector/kx.lua -r capture.pcapng -O kx
--
-- Protocols, by which a capture of exported PDUs names what a packet is:
--
--   kx                      frames of the tunnel, a byte stream; on top of TLS at the controller's port
--   kx_up, kx_down          a controller message, to the controller and to the access point
--   kx_own_up, kx_own_down  the message of a frame of the tunnel itself
--   kx_local                a local message
--   kx_apcomm               a packet of the client manager to apd
--   kx_driver_request, kx_driver_reply
--
-- All fields belong to kx. The tables are made from the programs' own (kx_layouts.lua).

local here = __DIR__ == "" and "" or __DIR__ .. "/"
local layouts = dofile(here .. "kx_layouts.lua")

local kx = Proto("kx", "Client Manager Protocol")
local tools = dofile(here .. "kx_fields.lua")(kx, layouts)
local dissect_message = dofile(here .. "kx_message.lua")(tools, layouts)
local of_access_point = dofile(here .. "kx_local.lua")(tools, layouts, dissect_message)
local fields, report, info = tools.fields, tools.report, tools.info
local add_structure, add_rest = tools.add_structure, tools.add_rest

local frame_header_size = 8
local client_manager = 106  -- destination of a frame

-- --- frames of the tunnel

local own_frames = {}
for _, each in ipairs(layouts.own_frames) do
    own_frames[each.type] = each
end

local function dissect_own(tvb, pinfo, tree, up)
    if tvb:len() == 0 then
        report(tree, pinfo, tvb(), "empty frame of the tunnel itself")
        return
    end
    local type = tvb(0, 1):uint()
    tree:add(fields.frame_type, tvb(0, 1))
    local frame = own_frames[type]
    if not frame then
        report(tree, pinfo, tvb(0, 1), "unknown frame of the tunnel itself, type " .. type)
        return
    end
    info(pinfo, frame.name)
    if up ~= nil and not (up and frame.to_controller or not up and frame.to_access_point) then
        report(tree, pinfo, tvb(0, 1), frame.name .. " is sent in the other direction")
    end
    local at = 1
    if frame.structure then
        at = add_structure(tree, pinfo, tvb, at, frame.structure)
    elseif frame.name == "tunnel_end" then
        add_rest(tree, tvb, at, "end_reason")
        at = tvb:len()
    end
    if at < tvb:len() then
        report(tree, pinfo, tvb(at), tvb:len() - at .. " bytes after the frame")
    end
end

-- Whether a packet of the tunnel goes to the controller; nil when neither port is the controller's.
local function goes_up(pinfo)
    if pinfo.dst_port == kx.prefs.port then
        return true
    elseif pinfo.src_port == kx.prefs.port then
        return false
    end
end

local function frame_is_usable(tvb, at)
    return tvb(at + 4, 4):uint() <= layouts.limits.frame_message
end

-- After an unusable length nothing separates frames: the rest is one. Where a capture cannot be joined with what
-- follows, the last bytes may be less than a header.
local function frame_length(tvb, _, at)
    if tvb:len() - at < frame_header_size then
        return frame_header_size
    end
    return frame_is_usable(tvb, at) and frame_header_size + tvb(at + 4, 4):uint() or tvb:len() - at
end

local function dissect_frame(tvb, pinfo, root)
    local tree = root:add(kx, tvb())
    pinfo.cols.protocol = "KX"
    if tvb:len() < frame_header_size then
        report(tree, pinfo, tvb(), "frame cut after " .. tvb:len() .. " bytes of its header")
        return tvb:len()
    end
    tree:add(fields.destination, tvb(0, 4))
    tree:add(fields.frame_length, tvb(4, 4))
    if not frame_is_usable(tvb, 0) then
        report(tree, pinfo, tvb(4, 4), "frame of " .. tvb(4, 4):uint() .. " bytes")
        return tvb:len()
    end
    local destination = tvb(0, 4):uint()
    if tvb:len() == frame_header_size then
        report(tree, pinfo, tvb(4, 4), "empty frame")
        return tvb:len()
    end
    local message = tvb(frame_header_size)
    if destination == client_manager then
        dissect_message(message:tvb(), pinfo, tree, goes_up(pinfo))
    elseif destination == 0 then
        dissect_own(message:tvb(), pinfo, tree, goes_up(pinfo))
    else
        add_rest(tree, tvb, frame_header_size, "trailing")
    end
    return tvb:len()
end

function kx.dissector(tvb, pinfo, root)
    pinfo.cols.info = ""
    dissect_tcp_pdus(tvb, root, frame_header_size, frame_length, dissect_frame)
    return tvb:len()
end

local tls_ports = DissectorTable.get("tls.port")
local port = kx.prefs.port
tls_ports:add(port, kx)
function kx.prefs_changed()
    tls_ports:remove(port, kx)
    port = kx.prefs.port
    tls_ports:add(port, kx)
end

-- --- what exported PDUs name

-- Of a tunnel, a capture has at most the access point's address.
local other_end = {["to controller:"] = "dst", ["to AP:"] = "src"}

local function register(name, description, direction, dissect)
    local proto = Proto(name, description)
    local column = other_end[direction]
    function proto.dissector(tvb, pinfo, root)
        pinfo.cols.protocol = "KX"
        pinfo.cols.info = direction
        if column then
            pinfo.cols[column] = "controller"
        end
        local tree = root:add(kx, tvb())
        dissect(tvb, pinfo, tree)
        return tvb:len()
    end
end

local function towards(up, dissect)
    return function(tvb, pinfo, tree) dissect(tvb, pinfo, tree, up) end
end

register("kx_up", "Client Manager Protocol, to the controller", "to controller:", towards(true, dissect_message))
register("kx_down", "Client Manager Protocol, to the access point", "to AP:", towards(false, dissect_message))
register("kx_own_up", "Client Manager Tunnel, to the controller", "to controller:", towards(true, dissect_own))
register("kx_own_down", "Client Manager Tunnel, to the access point", "to AP:", towards(false, dissect_own))
register("kx_local", "Client Manager Local Message", "local:", of_access_point.kx_local)
register("kx_apcomm", "Client Manager to apd", "to apd:", of_access_point.kx_apcomm)
register("kx_driver_request", "Client Manager Driver Request", "to the driver:", of_access_point.kx_driver_request)
register("kx_driver_reply", "Client Manager Driver Reply", "from the driver:", of_access_point.kx_driver_reply)
