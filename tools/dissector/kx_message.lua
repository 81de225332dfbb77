-- Controller messages. What is malformed is described as the controller describes it.
--
-- Returns a function, so that nothing happens when the file is loaded as a plugin of its own. It returns
-- dissect_message(tvb, pinfo, tree, up).
return function(tools, layouts)

local fields, report, add_fields, info = tools.fields, tools.report, tools.add_fields, tools.info
local message_header_size = layouts.structures.ctrlr_msg_hdr.size
local record_header_size = layouts.structures.ctrlr_rec_hdr.size

local function find_kind(list, kind)
    for _, each in ipairs(list) do
        if each[2] == kind then
            return each
        end
    end
end

local function size_of(list)
    local last = list[#list]
    return last and last[3] + last[4] or 0
end

-- Offset in `tvb` and text of the first byte that must be zero and is not.
local function find_stray(tvb, at, list)
    for _, each in ipairs(list) do
        if each[2] == "zero" then
            for i = at + each[3], at + each[3] + each[4] - 1 do
                local byte = tvb(i, 1):uint()
                if byte ~= 0 then
                    return i, "a byte that must be zero is " .. byte
                end
            end
        end
    end
end

local function find_data_length(list)
    for _, each in ipairs(list) do
        if each[1] == "data_length" then
            return each
        end
    end
end

-- Offset and text of the first byte past the data's own length that is not zero.
local function find_data_padding(tvb, at, list)
    local data, length = find_kind(list, "data"), find_data_length(list)
    if not data then
        return
    end
    local used = math.min(tvb(at + length[3], length[4]):uint(), data[4])
    local first = at + data[3] + used
    if used < data[4] and not tools.all_zero(tvb(first, data[4] - used)) then
        return first, "data past its own length"
    end
end

-- Offset and text of what is wrong in the body of `size` bytes at `at`; nil when nothing is.
local function find_fault(layout, tvb, record_at, at, size)
    local fixed, each = size_of(layout.body), size_of(layout.entry)
    local function wrong_length(expected)
        return record_at + 2, layout.name .. " with a body of " .. size .. " bytes, expected " .. expected
    end
    if size < fixed then
        return wrong_length(fixed)
    end
    local count = find_kind(layout.body, "count")
    local entries = count and tvb(at + count[3], count[4]):uint() or 0
    local expected = fixed + entries * each
    if size ~= expected and not (layout.open_ended and size > expected) then
        return wrong_length(string.format("%d", expected))
    end
    local offset, text = find_stray(tvb, at, layout.body)
    if not offset then
        offset, text = find_data_padding(tvb, at, layout.body)
    end
    for i = 0, entries - 1 do
        if offset then
            break
        end
        offset, text = find_stray(tvb, at + fixed + i * each, layout.entry)
    end
    return offset, text
end

-- Adds the entries that there is room for.
local function add_entries(tree, tvb, at, size, layout)
    local each = size_of(layout.entry)
    while each > 0 and size >= each do
        local range = tvb(at, each)
        add_fields(tree:add(fields.entry, range), tvb, at, each, layout.entry)
        at, size = at + each, size - each
    end
end

-- What follows an open-ended body: data, when the body has their length.
local function add_tail(tree, tvb, at, size, layout)
    local length = find_data_length(layout.body)
    local used = 0
    if length then
        used = math.min(tvb(at - size_of(layout.body) + length[3], length[4]):uint(), size)
        if used > 0 then
            tree:add(fields.data, tvb(at, used))
        end
    end
    if size > used then
        tree:add(fields.trailing, tvb(at + used, size - used))
    end
end

local function add_body(tree, tvb, at, size, layout)
    add_fields(tree, tvb, at, size, layout.body)
    local fixed = size_of(layout.body)
    if size <= fixed then
        return
    end
    if layout.list then
        add_entries(tree, tvb, at + fixed, size - fixed, layout)
    elseif layout.open_ended then
        add_tail(tree, tvb, at + fixed, size - fixed, layout)
    end
end

-- `up` is whether the message goes to the controller, nil when nobody said.
local function dissect_record(tvb, pinfo, tree, at, length, up)
    local whole = tvb(at, length)
    local item = tree:add(fields.record, whole)
    local header = tvb(at + 1, 1):uint()
    add_fields(item, tvb, at, length, layouts.structures.ctrlr_rec_hdr.fields)
    local type = tvb(at, 1):uint()
    local layout = layouts.records[type]
    if not layout then
        item:append_text(" of unknown type " .. type)
        report(item, pinfo, tvb(at, 1), "unknown record type " .. type)
        return
    end
    item:append_text(": " .. layout.name)
    info(pinfo, layout.name)
    add_body(item, tvb, at + header, length - header, layout)
    if up ~= nil and layout.to_controller ~= up then
        report(item, pinfo, tvb(at, 1), layout.name .. " is sent in the other direction")
        return
    end
    local offset, text = find_fault(layout, tvb, at, at + header, length - header)
    if offset then
        report(item, pinfo, tvb(offset, 1), text)
    end
end

-- Offset and text of what makes the header of the message unusable.
local function find_header_fault(tvb)
    local size = tvb:len()
    if size < message_header_size then
        return size, "message of " .. size .. " bytes, shorter than its header"
    end
    local function byte(at) return tvb(at, 1):uint() end
    if byte(0) ~= 1 then
        return 0, "message version " .. byte(0) .. ", expected 1"
    elseif byte(1) < message_header_size or byte(1) > size then
        return 1, "message header length " .. byte(1)
    elseif byte(2) ~= 0 then
        return 2, "message type " .. byte(2) .. ", expected 0"
    elseif byte(5) ~= 0 then
        return 5, "a byte that must be zero is " .. byte(5)
    elseif tvb(6, 2):uint() ~= size then
        return 6, "total length " .. tvb(6, 2):uint() .. " in a message of " .. size .. " bytes"
    end
end

-- Offset and text of what hides the end of the record at `at`.
local function find_record_fault(tvb, at)
    local left = tvb:len() - at
    if left < record_header_size then
        return at, "record cut after " .. left .. " bytes of its header"
    end
    local header, length = tvb(at + 1, 1):uint(), tvb(at + 2, 2):uint()
    if header < record_header_size or header > length then
        return at + 1, "record header length " .. header .. " in a record of " .. length .. " bytes"
    elseif length > left then
        return at + 2, "record length " .. length .. " with " .. left .. " bytes left in the message"
    end
end

-- The range from `at`, of the whole message when nothing is there.
local function range_from(tvb, at)
    return at < tvb:len() and tvb(at) or tvb()
end

local function dissect_message(tvb, pinfo, tree, up)
    if up ~= nil then
        tree:add(fields.to_controller, up):set_generated()
    end
    add_fields(tree, tvb, 0, tvb:len(), layouts.structures.ctrlr_msg_hdr.fields)
    local offset, text = find_header_fault(tvb)
    if offset then
        report(tree, pinfo, range_from(tvb, offset), text)
        return
    end
    local at = tvb(1, 1):uint()
    for _ = 1, tvb(3, 2):uint() do
        offset, text = find_record_fault(tvb, at)
        if offset then
            report(tree, pinfo, range_from(tvb, offset), text)
            return
        end
        local length = tvb(at + 2, 2):uint()
        dissect_record(tvb, pinfo, tree, at, length, up)
        at = at + length
    end
    if at ~= tvb:len() then
        report(tree, pinfo, tvb(at), tvb:len() - at .. " bytes after the last record")
    end
end

return dissect_message

end
