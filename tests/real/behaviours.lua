-- What Lua does, told line by line: the same program on another system writes the same lines. Times and paths of the
-- machine stay out; what must hold is asserted.
local failures = 0
local function hold(condition, what)
  if condition then return end
  failures = failures + 1
  print("FAILED: " .. what .. " at line " .. debug.getinfo(2, "l").currentline)
end

-- Numbers and their texts; Lua's own generator makes the same ones everywhere.
math.randomseed(42)
for i = 1, 1000 do
  local value = string.unpack("<d", string.pack("<I8", math.random(0) & 0xFFEFFFFFFFFFFFFF))
  if i % 2 == 0 then value = (math.random() - 0.5) * 10 ^ math.random(-20, 20) end
  print(value, ("%g %.17g %e %.3f %d"):format(value, value, value, value, math.random(0)))
  for _, format in ipairs {"%.17g", "%a"} do hold(tonumber(format:format(value)) == value, "it survives " .. format) end
  print(tonumber(math.random(0, 1 << 50) .. "." .. math.random(0, 1 << 50) .. "e" .. math.random(-330, 310)))
end
print(("Straße"):upper(), ("a" < "B"), ("%5s|%-5s|%.2s|%q"):format("x", "y", "zzz", "\0\n\200"), ("x1 y2"):gsub("%a", "<%0>"))

-- Errors: setjmp and longjmp, through metamethods and C functions.
local function deep(n) if n == 0 then error({code = 7}) end return deep(n - 1) + 1 end
for i = 1, 2000 do
  local ok, problem = pcall(deep, i % 150)
  hold(not ok and problem.code == 7, "an error comes out of " .. i)
end
print(pcall(error, "text", 0), pcall(nil), pcall(string.rep), pcall(function() return 1 + {} end))
print(pcall(table.sort, {3, 1, 2, 5, 4, 7, 9, 0}, function() error "in a comparison" end))

-- Memory: what is made, sorted, kept and collected.
local weak, finalized, list = setmetatable({}, {__mode = "k"}), 0, {}
for i = 1, 100000 do
  weak[{}], list[i % 5000 + 1] = ("x"):rep(i % 100), tostring(math.random(0))
  if i % 10 == 0 then setmetatable({}, {__gc = function() finalized = finalized + 1 end}) end
end
collectgarbage() collectgarbage()
hold(next(weak) == nil and finalized == 10000 and collectgarbage "count" < 20000, "all is collected")
table.sort(list)
print(table.concat(list, " ", 1, 100))

-- Files.
local name, bytes = "файл.tmp", {}
for i = 0, 255 do bytes[i + 1] = string.char(i) end
bytes = table.concat(bytes)
local file = assert(io.open(name, "wb"))
hold(file:write("line 1\n", 2, " ", 3.5, "\nline 3\r\n", bytes) and file:seek "cur" == 21 + 256, "position")
file:close()
file = assert(io.open(name, "a+"))
file:write "more"
hold(file:seek("set", 5) == 5 and file:read(3) == "1\n2" and file:seek("end", -260) == 21, "places")
hold(file:read "a" == bytes .. "more" and file:read(1) == nil and file:read "a" == "", "bytes survive")
file:close()
for line in io.lines(name, "L") do io.write(#line, " ", line:sub(1, 4), "\n") end
hold(os.rename(name, "renamed.tmp") and os.remove "renamed.tmp", "rename and remove")

-- The system.
for _, time in ipairs {0, 86399, 951782400, 1700000000, 4102444800} do
  print(os.date("!%Y-%m-%d %H:%M:%S %a %B %c %j %p %U %V", time))
  local fields = os.date("*t", time) fields.isdst = nil
  hold(os.time(fields) == time, "local time comes back: " .. time)
end
print(os.getenv "NO_SUCH_VARIABLE", os.setlocale(), failures, "failures")
