-- The runtime of the dissector: finds frames in a TCP stream, checks both checksums, takes
-- split bodies together, restores the body coding and reads the payload by the tables above.
-- Every read is bounded by the bytes that arrived: a count or a length is never trusted past
-- them, and what is cut is marked as such.

local bit = bit32
local kz = Proto("kz", "KZ LAN protocol")
local DEFAULT_PORT = 7600
local MAX_BODY = 16 * 1024 * 1024

local F = {
    version = ProtoField.uint8("kz.frame.version", "Version"),
    fflags = ProtoField.uint8("kz.frame.flags", "Frame flags", base.HEX),
    fseq = ProtoField.uint32("kz.frame.seq", "Sequence number"),
    attr_len = ProtoField.uint16("kz.frame.attr_len", "Attr length"),
    data_len = ProtoField.uint32("kz.frame.data_len", "Data length"),
    msg_id = ProtoField.uint32("kz.frame.message_id", "Message id"),
    total = ProtoField.uint32("kz.frame.body_total", "Body total"),
    poffset = ProtoField.uint32("kz.frame.piece_offset", "Piece offset"),
    hcrc = ProtoField.uint32("kz.frame.header_crc", "Header CRC", base.HEX),
    attr = ProtoField.string("kz.frame.attr", "Attr"),
    data = ProtoField.bytes("kz.frame.data", "Data (coded)"),
    fcrc = ProtoField.uint32("kz.frame.crc", "Frame CRC", base.HEX),
    flag = ProtoField.uint8("kz.flag", "Flag", base.DEC, {[0] = "request", [1] = "reply"}),
    type = ProtoField.uint8("kz.type", "Type"),
    code = ProtoField.uint16("kz.code", "Method code", base.HEX),
    method = ProtoField.string("kz.method", "Method"),
    pieces = ProtoField.uint32("kz.pieces", "Frames of the body"),
    garbage = ProtoField.bytes("kz.garbage", "Not part of a frame"),
}

local PF = {}
for path, kind in pairs(FIELD_KINDS) do
    local abbr, name = "kz." .. path, path
    if kind == "int" then
        PF[path] = ProtoField.int64(abbr, name)
    elseif kind == "bool" then
        PF[path] = ProtoField.bool(abbr, name)
    elseif kind == "double" then
        PF[path] = ProtoField.double(abbr, name)
    elseif kind == "bytes" then
        PF[path] = ProtoField.bytes(abbr, name)
    else
        PF[path] = ProtoField.string(abbr, name)
    end
end

local fields = {}
for _, f in pairs(F) do fields[#fields + 1] = f end
for _, f in pairs(PF) do fields[#fields + 1] = f end
kz.fields = fields

-- Expert info: key = {filter name, summary, group, severity}.
local E = {}
local experts = {}
for key, e in pairs({
    unknown = {"unknown_code", "Unknown method code", "UNDECODED", "WARN"},
    cut = {"cut_body", "Body cut: the data ends inside a field", "MALFORMED", "ERROR"},
    hcrc = {"header_crc.bad", "Header checksum mismatch", "CHECKSUM", "ERROR"},
    fcrc = {"frame_crc.bad", "Frame checksum mismatch", "CHECKSUM", "ERROR"},
    garbage = {"garbage.bytes", "Bytes that are not part of a frame", "MALFORMED", "WARN"},
    piece = {"piece.bad", "Piece that continues no body", "SEQUENCE", "WARN"},
    header = {"header.bad", "Message header: type is not 17 or flag not 0 or 1", "MALFORMED",
              "WARN"},
}) do
    E[key] = ProtoExpert.new("kz." .. e[1], e[2], expert.group[e[3]], expert.severity[e[4]])
    experts[#experts + 1] = E[key]
end
kz.experts = experts

-- CRC-32 (zlib): reflected polynomial 0xEDB88320, initial value and final XOR 0xFFFFFFFF.
local CRC = {}
for i = 0, 255 do
    local c = i
    for _ = 1, 8 do
        if bit.band(c, 1) == 1 then
            c = bit.bxor(0xEDB88320, bit.rshift(c, 1))
        else
            c = bit.rshift(c, 1)
        end
    end
    CRC[i] = c
end

local function crc32(s)
    local c = 0xFFFFFFFF
    local byte, band, bxor, rshift = string.byte, bit.band, bit.bxor, bit.rshift
    for i = 1, #s, 4096 do
        local chunk = {byte(s, i, math.min(i + 4095, #s))}
        for j = 1, #chunk do c = bxor(rshift(c, 8), CRC[band(bxor(c, chunk[j]), 0xFF)]) end
    end
    return bxor(c, 0xFFFFFFFF)
end

-- The body coding: byte p of the run is XORed with byte p mod 8 (least significant first) of
-- the 64-bit word K(p div 8), a mix of p div 8 (64-bit arithmetic, wrapping).
local K1 = UInt64(0x7F4A7C15, 0x9E3779B9)
local K2 = UInt64(0x494E3031, 0x4B5A4150)
local M1 = UInt64(0x1CE4E5B9, 0xBF58476D)
local M2 = UInt64(0x133111EB, 0x94D049BB)

local function keyword(i)
    local z = UInt64(i) * K1 + K2
    z = z:bxor(z:rshift(30)) * M1
    z = z:bxor(z:rshift(27)) * M2
    z = z:bxor(z:rshift(31))
    return z:lower(), z:higher()
end

-- The body with bytes 1 to the end decoded as one run; byte 0 (the flag) is never coded.
local function restore(body)
    local out = {body:sub(1, 1)}
    local byte, char, band, bxor, rshift = string.byte, string.char, bit.band, bit.bxor,
                                           bit.rshift
    local n = #body - 1
    for w = 0, math.floor((n - 1) / 8) do
        local lo, hi = keyword(w)
        local first = 2 + w * 8
        local b = {byte(body, first, math.min(first + 7, #body))}
        for j = 1, #b do
            local k = j <= 4 and rshift(lo, 8 * (j - 1)) or rshift(hi, 8 * (j - 5))
            b[j] = char(bxor(b[j], band(k, 0xFF)))
        end
        out[#out + 1] = table.concat(b)
    end
    return table.concat(out)
end

-- ---------------------------------------------------------------------------------------------
-- The payload reader: a position in the restored body's Tvb; reading past the end gives zero or
-- empty text and marks the reader short at the first field it happened in.
-- ---------------------------------------------------------------------------------------------

local Reader = {}
Reader.__index = Reader

local function reader(tvb, start)
    return setmetatable({tvb = tvb, pos = start, len = tvb:len(), base = start}, Reader)
end

function Reader:avail() return self.len - self.pos end
function Reader:at_end() return self.pos >= self.len end

function Reader:short_at(at)
    if not self.cut_at then self.cut_at = at - self.base end
    self.pos = self.len
end

-- The bytes [start, start + n) of a field; a field that starts past the data (a cut body) is
-- shown as an empty range at its last byte.
function Reader:range(start, n)
    if start >= self.len then return self.tvb(math.max(0, self.len - 1), 0) end
    return self.tvb(start, math.max(0, math.min(n, self.len - start)))
end

function Reader:int(n, signed)
    local at = self.pos
    if self:avail() < n then
        self:short_at(at)
        return 0
    end
    self.pos = at + n
    local r = self.tvb(at, n)
    return signed and r:le_int() or r:le_uint()
end

function Reader:take(n)
    local at = self.pos
    if n > self:avail() then
        self:short_at(at)
        n = math.max(0, self.len - at)
    end
    self.pos = at + n
    return n > 0 and self.tvb:raw(at, n) or ""
end

function Reader:strz()
    local at = self.pos
    local from = at
    while from < self.len do
        local n = math.min(4096, self.len - from)
        local z = self.tvb:raw(from, n):find("\0", 1, true)
        if z then
            self.pos = from + z
            return self.tvb:raw(at, from + z - 1 - at) or ""
        end
        from = from + n
    end
    self:short_at(at)
    return at < self.len and self.tvb:raw(at, self.len - at) or ""
end

-- ---------------------------------------------------------------------------------------------
-- The wire forms. Each read adds one tree item: "name = value  (form @offset)", filed under the
-- field's path for the display filters, and returns the value.
-- ---------------------------------------------------------------------------------------------

local read_form

local function quoted(s) return '"' .. s .. '"' end

local function add(tree, r, path, name, form_text, start, value, shown)
    local kind = FIELD_KINDS[path]
    local pf = PF[path]
    local range = r:range(start, r.pos - start)
    local item
    if not pf then
        item = tree:add(range, "")
    elseif kind == "int" then
        item = tree:add(pf, range, Int64(type(value) == "number" and value or 0))
    elseif kind == "bool" then
        item = tree:add(pf, range, value and true or false)
    elseif kind == "double" then
        item = tree:add(pf, range, tonumber(value) or 0)
    elseif kind == "bytes" then
        item = tree:add(pf, range)
    else
        item = tree:add(pf, range, type(value) == "string" and value or tostring(shown))
    end
    item:set_text(string.format("%s = %s  (%s @%d)", name, shown, form_text, start - r.base))
    return item
end

local INT = {u8 = {1, false}, u16 = {2, false}, i16 = {2, true}, u32 = {4, false},
             i32 = {4, true}, low16 = {2, false}, dblint = {4, true}, dbltrunc = {4, true},
             power = {4, false}}

local function count16(r) -- list and map counts: 16 bits, signed; zero or below is empty
    local n = r:int(2, true)
    return n > 0 and n or 0, n
end

local function form_text(form)
    if form.h == "record" then return form.r end
    if form.c and form.h == "bytes" then return "bytes(" .. form.c .. ")" end
    return form.h
end

-- Reads `count` entries while bytes remain, each by `one(i)`.
local function entries(r, count, one)
    for i = 1, count do
        if r:at_end() then break end
        one(i)
    end
end

local function scope_value(scope, name)
    while scope do
        if scope.values[name] ~= nil then return scope.values[name] end
        scope = scope.parent
    end
    return 0
end

local function counted(scope, c)
    local name, plus = c:match("^([%w_]+)%+(%d+)$")
    if name then return (tonumber(scope_value(scope, name)) or 0) + tonumber(plus) end
    return tonumber(scope_value(scope, c)) or 0
end

local function read_fields(r, tree, prefix, fields, scope)
    local inner = {values = {}, parent = scope}
    for _, f in ipairs(fields) do
        local name = f.n
        local path = prefix .. name
        if prefix == "" and (name == "flag" or name == "type" or name == "method" or
            name == "code" or name == "seq" or name == "frame" or name == "field" or
            name == "garbage") then
            path = "field." .. name
        end
        inner.values[name] = read_form(r, tree, path, name, f.f, inner)
    end
end

local function composite(r, tree, path, name, form, start, body)
    local item = add(tree, r, path, name, form_text(form), start, "", "")
    local sub = item
    local summary = body(sub)
    item:set_len(math.max(0, r.pos - start))
    item:set_text(string.format("%s = %s  (%s @%d)", name, summary, form_text(form),
                                start - r.base))
    return summary
end

read_form = function(r, tree, path, name, form, scope)
    local h = form.h
    local start = r.pos
    local fixed = INT[h]
    if fixed then
        local v = r:int(fixed[1], fixed[2])
        add(tree, r, path, name, h, start, v, tostring(v))
        return v
    elseif h == "sbyte" then
        local v = r:int(1, true)
        add(tree, r, path, name, h, start, v, tostring(v))
        return v
    elseif h == "flag8" or h == "flag8x" then
        local b = r:int(1, false)
        local v = (h == "flag8") and b == 0 or (h == "flag8x" and bit.band(b, 1) == 0)
        add(tree, r, path, name, h, start, v, tostring(v))
        return v
    elseif h == "strz" or h == "datetext" then
        local s = r:strz()
        add(tree, r, path, name, h, start, s, quoted(s))
        return s
    elseif h == "dtext" or h == "itext" then
        local s = r:strz()
        local v = tonumber(s) or 0
        if h == "itext" then v = math.floor(v) end
        add(tree, r, path, name, h, start, v, s)
        return v
    elseif h == "str16" then
        local n = r:int(2, false)
        local s = r:take(n)
        s = s:gsub("%z$", "")
        add(tree, r, path, name, h, start, s, quoted(s))
        return s
    elseif h == "blob32" then
        local n = r:int(4, false)
        local s = r:take(n)
        add(tree, r, path, name, h, start, s, string.format("[%d bytes]", #s))
        return s
    elseif h == "blk16" or h == "bytes" then
        local n = h == "blk16" and 16 or counted(scope, form.c)
        local s = r:take(math.max(0, n))
        add(tree, r, path, name, form_text(form), start, s, string.format("[%d bytes]", #s))
        return s
    elseif h == "strlist" then
        return composite(r, tree, path, name, form, start, function(sub)
            local count = count16(r)
            local got = 0
            entries(r, count, function()
                local at = r.pos
                local s = r:strz()
                add(sub, r, path .. ".item", "item", "strz", at, s, quoted(s))
                got = got + 1
            end)
            return string.format("[%d]", got)
        end)
    elseif h == "groupmap" or h == "strintmap" or h == "numbermap" or h == "optstrintmap" then
        if h == "optstrintmap" and r:at_end() then return nil end
        local value = ({groupmap = {h = "strlist"}, numbermap = {h = "dtext"}})[h] or {h = "i32"}
        return composite(r, tree, path, name, form, start, function(sub)
            local count = count16(r)
            local got = 0
            entries(r, count, function()
                read_form(r, sub, path .. ".key", "key", {h = "strz"}, scope)
                read_form(r, sub, path .. ".value", "value", value, scope)
                got = got + 1
            end)
            return string.format("[%d]", got)
        end)
    elseif h == "list" or h == "slist" or h == "repeat" then
        local entry = form.a[1]
        local into = (entry.h == "record" or entry.h == "struct") and path or path .. ".item"
        return composite(r, tree, path, name, form, start, function(sub)
            local count = h == "repeat" and counted(scope, form.c) or count16(r)
            local got = 0
            entries(r, count, function(i)
                got = got + 1
                if entry.h == "record" or entry.h == "struct" then
                    local at = r.pos
                    local e = sub:add(r:range(at, 0), string.format("[%d]", i - 1))
                    local fields = entry.h == "record" and RECORDS[entry.r] or entry.f
                    read_fields(r, e, into .. ".", fields, scope)
                    e:set_len(math.max(0, r.pos - at))
                else
                    read_form(r, sub, into, string.format("[%d]", i - 1), entry, scope)
                end
            end)
            return string.format("[%d]", got)
        end)
    elseif h == "map" then
        return composite(r, tree, path, name, form, start, function(sub)
            local count = count16(r)
            local got = 0
            entries(r, count, function()
                read_form(r, sub, path .. ".key", "key", form.a[1], scope)
                read_form(r, sub, path .. ".value", "value", form.a[2], scope)
                got = got + 1
            end)
            return string.format("[%d]", got)
        end)
    elseif h == "row" or h == "vrow" then
        return composite(r, tree, path, name, form, start, function(sub)
            for _, cell in ipairs(form.cells) do
                read_form(r, sub, path .. "." .. cell.n, cell.n, cell.f, scope)
            end
            return string.format("{%d cells}", #form.cells)
        end)
    elseif h == "record" or h == "struct" then
        return composite(r, tree, path, name, form, start, function(sub)
            read_fields(r, sub, path .. ".", h == "record" and RECORDS[form.r] or form.f, scope)
            return "{...}"
        end)
    end
    -- A form this dissector does not know: the rest of the payload, as bytes.
    local s = r:take(r:avail())
    add(tree, r, path, name, h, start, s, string.format("[%d bytes]", #s))
    return s
end

-- ---------------------------------------------------------------------------------------------
-- One restored body: the message header and the payload.
-- ---------------------------------------------------------------------------------------------

local function dissect_body(body, pinfo, tree, frames, infos)
    local plain = restore(body)
    local tvb = ByteArray.new(plain, true):tvb("KZ body (restored)")
    local t = tree:add(kz, tvb(), "KZ message")
    if frames > 1 then t:add(F.pieces, frames):set_generated() end
    if tvb:len() < 4 then
        t:add_proto_expert_info(E.cut, "Body shorter than the 4-byte message header")
        infos[#infos + 1] = "cut body"
        return
    end
    local flag = tvb(0, 1):uint()
    local code = tvb(2, 2):le_uint()
    local method = METHODS[code]
    t:add(F.flag, tvb(0, 1))
    t:add(F.type, tvb(1, 1))
    t:add_le(F.code, tvb(2, 2))
    local kind = flag == 0 and "Request" or flag == 1 and "Reply" or ("Flag " .. flag)
    if not method then
        t:add_proto_expert_info(E.unknown, string.format("Unknown method code 0x%04X", code))
        infos[#infos + 1] = string.format("%s 0x%04X (unknown)", kind, code)
        t:set_text(string.format("KZ %s, unknown method code 0x%04X", kind:lower(), code))
        return
    end
    t:add(F.method, tvb(2, 2), method.name)
    t:set_text(string.format("KZ %s %s (0x%04X)", kind:lower(), method.name, code))
    infos[#infos + 1] = kind .. " " .. method.name
    local fields = method[flag]
    if tvb(1, 1):uint() ~= 17 or not fields then
        t:add_proto_expert_info(E.header)
        return
    end
    -- The decoders are given the body from offset 4 to its end, closing zero byte included.
    local r = reader(tvb, 4)
    local p = t:add(tvb(4, math.max(0, tvb:len() - 4)), "Payload")
    read_fields(r, p, "", fields, nil)
    if r.cut_at then
        p:add_proto_expert_info(E.cut, string.format(
            "Body cut: the data ends inside the field at @%d", r.cut_at))
    end
end

-- ---------------------------------------------------------------------------------------------
-- Frames in a TCP stream.
-- ---------------------------------------------------------------------------------------------

local f_tcp_stream = Field.new("tcp.stream")
local partial = {}   -- split bodies being taken together, by stream, direction and message id
local partial_bytes = 0 -- what they hold together, at most MAX_BODY as a receiver would
local completed = {} -- bodies completed in a packet: by packet number and offset

-- A new capture starts with nothing taken together.
function kz.init()
    partial, partial_bytes, completed = {}, 0, {}
end

local function le32(tvb, at) return tvb(at, 4):le_uint() end

-- The frame header at `offset`: its length, or nil with a reason ("more" with the bytes needed,
-- or "no" when it is not a frame), and whether the header checksum failed.
local function header(tvb, offset)
    local avail = tvb:len() - offset
    if avail < 4 then return nil, "more", 4 end
    if tvb(offset, 2):uint() ~= 0x4B5A or tvb(offset + 2, 1):uint() ~= 1 then return nil, "no" end
    local flags = tvb(offset + 3, 1):uint()
    if flags > 1 then return nil, "no" end
    local head = flags == 1 and 26 or 14
    if avail < head + 4 then return nil, "more", head + 4 end
    if crc32(tvb:raw(offset, head)) ~= le32(tvb, offset + head) then return nil, "crc" end
    local a = tvb(offset + 8, 2):le_uint()
    local n = le32(tvb, offset + 10)
    if n > MAX_BODY then return nil, "no" end
    return head + 4 + a + n + 4, head, a, n
end

local function stream_key(pinfo)
    local s = f_tcp_stream()
    return tostring(s and s.value or 0) .. "|" .. tostring(pinfo.src) .. ":" ..
               tostring(pinfo.src_port)
end

local function dissect_frame(tvb, pinfo, tree, offset, len, head, a, n, infos)
    local t = tree:add(kz, tvb(offset, len), "KZ frame")
    local flags = tvb(offset + 3, 1):uint()
    t:add(F.version, tvb(offset + 2, 1))
    t:add(F.fflags, tvb(offset + 3, 1))
    t:add_le(F.fseq, tvb(offset + 4, 4))
    t:add_le(F.attr_len, tvb(offset + 8, 2))
    t:add_le(F.data_len, tvb(offset + 10, 4))
    if flags == 1 then
        t:add_le(F.msg_id, tvb(offset + 14, 4))
        t:add_le(F.total, tvb(offset + 18, 4))
        t:add_le(F.poffset, tvb(offset + 22, 4))
    end
    t:add_le(F.hcrc, tvb(offset + head, 4))
    if a > 0 then t:add(F.attr, tvb(offset + head + 4, a)) end
    local data_at = offset + head + 4 + a
    if n > 0 then t:add(F.data, tvb(data_at, n)) end
    local fcrc = t:add_le(F.fcrc, tvb(offset + len - 4, 4))
    if crc32(tvb:raw(offset, len - 4)) ~= le32(tvb, offset + len - 4) then
        fcrc:add_proto_expert_info(E.fcrc)
        infos[#infos + 1] = "frame checksum mismatch"
        return false
    end
    local data = n > 0 and tvb:raw(data_at, n) or ""
    if flags == 0 then
        t:set_text(string.format("KZ frame, seq %d, %d bytes of body", le32(tvb, offset + 4), n))
        dissect_body(data, pinfo, tree, 1, infos)
        return true
    end
    local id, total, at = le32(tvb, offset + 14), le32(tvb, offset + 18), le32(tvb, offset + 22)
    t:set_text(string.format("KZ piece of body %d: bytes %d to %d of %d", id, at, at + n, total))
    local done_key = pinfo.number .. ":" .. offset
    if not pinfo.visited then
        local key = stream_key(pinfo) .. "|" .. id
        local p = partial[key]
        local function drop()
            if p then partial_bytes = partial_bytes - p.got end
            partial[key] = nil
        end
        if at == 0 then
            drop()
            p = {parts = {}, got = 0, total = total, frames = 0}
            partial[key] = p
        end
        if not p or p.got ~= at or p.total ~= total or at + n > total or
            partial_bytes + n > MAX_BODY then
            drop()
            t:add_proto_expert_info(E.piece)
            return true
        end
        p.parts[#p.parts + 1] = data
        p.got = p.got + n
        partial_bytes = partial_bytes + n
        p.frames = p.frames + 1
        if p.got == total then
            completed[done_key] = {body = table.concat(p.parts), frames = p.frames}
            drop()
        end
    end
    local done = completed[done_key]
    if done then dissect_body(done.body, pinfo, tree, done.frames, infos) end
    return true
end

function kz.dissector(tvb, pinfo, tree)
    local len = tvb:len()
    local offset = 0
    local infos = {}
    pinfo.cols.protocol = "KZ"
    local garbage_from = nil
    local function end_garbage(to)
        if garbage_from and to > garbage_from then
            local g = tree:add(F.garbage, tvb(garbage_from, to - garbage_from))
            g:add_proto_expert_info(E.garbage, string.format(
                "%d bytes that are not part of a frame", to - garbage_from))
            infos[#infos + 1] = string.format("%d bytes not a frame", to - garbage_from)
        end
        garbage_from = nil
    end
    while offset < len do
        local flen, head, a, n = header(tvb, offset)
        if flen == nil and head == "more" then
            -- Wait for the rest of the header, unless these bytes cannot start one.
            local k = tvb:raw(offset, math.min(2, len - offset))
            if k == "K" or k == "KZ" then
                end_garbage(offset)
                pinfo.desegment_offset = offset
                pinfo.desegment_len = DESEGMENT_ONE_MORE_SEGMENT
                break
            end
            flen, head = nil, "no"
        end
        if flen == nil then
            if head == "crc" then
                local t = tree:add(kz, tvb(offset, math.min(len - offset, 18)), "KZ frame header")
                t:add_proto_expert_info(E.hcrc)
                infos[#infos + 1] = "header checksum mismatch"
            end
            garbage_from = garbage_from or offset
            offset = offset + 1
        elseif offset + flen > len then
            end_garbage(offset)
            pinfo.desegment_offset = offset
            pinfo.desegment_len = offset + flen - len
            break
        else
            end_garbage(offset)
            if dissect_frame(tvb, pinfo, tree, offset, flen, head, a, n, infos) then
                offset = offset + flen
            else
                garbage_from = offset -- a damaged frame: look for the next one inside it
                offset = offset + 1
            end
        end
    end
    end_garbage(offset)
    if #infos > 0 then pinfo.cols.info:set(table.concat(infos, ", ")) end
    return len
end

-- A stream that starts with a frame header whose checksum holds is ours, on any port.
local function heuristic(tvb, pinfo, tree)
    if tvb:len() < 18 then return false end
    local flen, head = header(tvb, 0)
    if flen == nil then return false end
    pinfo.conversation = kz
    kz.dissector(tvb, pinfo, tree)
    return true
end

DissectorTable.get("tcp.port"):add(DEFAULT_PORT, kz)
kz:register_heuristic("tcp", heuristic)
