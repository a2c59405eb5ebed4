-- What Lua does, told line by line: the same program on another system writes the same lines. Times and paths of the
-- machine stay out; what must hold is asserted.
local failures = 0
local function hold(condition, what)
  if not condition then
    failures = failures + 1
    print("FAILED: " .. what .. " at line " .. debug.getinfo(2, "l").currentline)
  end
end

-- Random numbers of Lua's own generator: the same everywhere.
math.randomseed(42)

-- ---- Numbers and their texts: the C library's printf and strtod in every corner --------------------------------------
local doubles = {0.0, -0.0, 1.0, -1.5, 0.1, 1 / 3, 2 / 3, 1e15, 1e16, 1e17, 123456789012345680, 5e-324, 2.2250738585072014e-308,
  1.7976931348623157e308, math.pi, -math.pi, 0.5, 2.5, 1e21, 1e22, 1e23, 9.5, 99.5, 0.00001, 0.0001, 1e-5,
  math.huge, -math.huge, 4.35, 2.675, 1.005, 1e100, 8.5, 0.000123456, 18446744073709551616.0}
for i = 1, 500 do
  doubles[#doubles + 1] = string.unpack("<d", string.pack("<I8", math.random(0) & 0xFFEFFFFFFFFFFFFF))
  doubles[#doubles + 1] = (math.random() - 0.5) * 10 ^ math.random(-20, 20)
end
local formats = {"%g", "%.17g", "%.14g", "%e", "%.0e", "%f", "%.0f", "%.3f", "%10.2f", "%-12.4g|", "%+.5e", "% .3g", "%#.0f",
  "%#g", "%015.3f", "%+G", "%E", "%.20f"}
for _, value in ipairs(doubles) do
  local texts = {}
  for i, format in ipairs(formats) do texts[i] = format:format(value) end
  print(table.concat(texts, " "))
  if math.abs(value) >= 2 ^ -1022 then print(string.format("%a %.3a %A %20.10a", value, value, value, value)) end
  hold(math.abs(value) == math.huge or tonumber(string.format("%.17g", value)) == value, "a double survives %.17g: " .. string.format("%.17g", value))
  hold(math.abs(value) == math.huge or tonumber(string.format("%a", value)) == value, "a double survives %a: " .. string.format("%a", value))
end
for _, value in ipairs {0, 1, -1, 42, 255, -255, math.maxinteger, math.mininteger, 1 << 31, 1 << 32, -(1 << 31)} do
  print(string.format("%d %5d %-5d| %05d %+d % d %i %x %X %#x %o %#o %.5d %12.7d %-12.3x| %c %s", value, value, value, value,
    value, value, value, value, value, value, value, value, value, value, value, value & 127 | 64, value))
end
for _, text in ipairs {"0x10", "0x1p4", "0x.8", "0xA.8p-1", "1e1", "1e", "e1", ".5", "5.", ".", "1e+", "1e-3", " 12 ", "12a", "0x",
  "1e400", "-1e400", "1e-400", "inf", "nan", "0x1p-1074", "0x1.fffffffffffffp1023", "9007199254740993", "1e23",
  "2.2250738585072011e-308", "179769313486231580793728971405303415079934132710037826936173778980444968292764750946649017977587207096330286416692887910946555547851940402630657488671505820681908902000708383676273854845817711531764475730270069855571366959622842914819860834936475292719074168444365510704342711559699508093042880.0",
  "0.1e1", "1_000", "١", "", "+5", "-0x8000000000000000", "9223372036854775807", "9223372036854775808", "1.5e0x", "1 2",
  "0.1000000000000000055511151231257827", "8.41e21", "5708990770823839524233143877797980545530986496.0"} do
  local number = tonumber(text)
  print(text, number, math.type(number), number and string.format("%.17g", number))
end
for base = 2, 36 do io.write(tostring(tonumber("1zZ0" .. base, base)), " ", tostring(tonumber("10", base)), "\n") end
for i = 1, 2000 do  -- decimal texts of many digits, read and written again
  local digits = {}
  for d = 1, math.random(1, 30) do digits[d] = math.random(0, 9) end
  local text = table.concat(digits) .. "." .. math.random(0, 99999999) .. "e" .. math.random(-330, 310)
  print(text, string.format("%.17g", tonumber(text)))
end

-- ---- Mathematics -----------------------------------------------------------------------------------------------------
for i = 1, 400 do
  local x = (math.random() - 0.5) * 10 ^ math.random(-3, 3)
  print(string.format("%.12g %.12g %.12g %.12g %.12g %.12g %.12g %.12g", math.sin(x), math.cos(x), math.tan(x), math.exp(x / 10),
    math.log(math.abs(x)), math.log(math.abs(x), 2), math.log(math.abs(x), 10), math.atan(x, 2)))
  print(math.floor(x), math.ceil(x), math.fmod(x, 3), x % 3, x // 3, math.abs(x), string.format("%.12g", math.abs(x) ^ 1.5),
    math.sqrt(math.abs(x)), math.modf(x))
  if math.abs(x) <= 1 then print(string.format("%.12g %.12g", math.asin(x), math.acos(x))) end
end
for _, x in ipairs {0.0, -0.0, math.huge, -math.huge, 0 / 0} do
  print((string.format("%g %g %g %g %g %g", math.exp(x), x ^ 0, x ^ 0.5, math.sqrt(x), math.atan(x), math.fmod(x, 2)):gsub("-nan", "nan")))
end

-- ---- Strings ---------------------------------------------------------------------------------------------------------
local all = {}
for i = 0, 255 do all[i + 1] = string.char(i) end
all = table.concat(all)
for class in ("acdglpsuwxACDGLPSUWX"):gmatch "." do  -- the table of characters
  local set = {}
  for c in all:gmatch("%" .. class) do set[#set + 1] = c:byte() end
  print(class, table.concat(set, ","))
end
print((all:upper():gsub("[^%w]", "")), (all:lower():gsub("[^%w]", "")))
print(("%q"):format(all), ("%s|%10s|%-10s|%.2s"):format("word", "right", "left", "cut"))
print(("hello world from Lua"):gsub("(%w+) (%w+)", "%2 %1"), ("abc"):rep(3, "-"), ("abc"):reverse(), ("x"):byte())
print(("THE (quick) fox"):find("%((%a+)%)"), ("a,b,,c"):gsub(",", ";"), ("  trim  "):match "^%s*(.-)%s*$", ("f(a(b)c)d"):match "%b()")
print(pcall(string.rep, "x", 1 << 60), pcall(string.format, "%d", 1.5), pcall(string.format, "%y", 1), pcall(string.gsub, "x", "(", ""))
print(string.pack(">i4 z s1 d", 77, "zero", "one", 1.5):byte(1, -1))
for _, pair in ipairs {{"a", "b"}, {"a", "B"}, {"", "a"}, {"a\0b", "a\0c"}, {"ä", "z"}} do print(pair[1] < pair[2], pair[1] <= pair[2]) end
print(utf8.char(72, 228, 8364, 128512), utf8.len "Hä€😀", utf8.codepoint("Hä€😀", 1, -1))

-- ---- Errors: setjmp and longjmp, through coroutines, metamethods and C functions -------------------------------------
local function deep(n) if n == 0 then error({code = 7}) end return deep(n - 1) + 1 end
for i = 1, 2000 do
  local ok, problem = pcall(deep, i % 150)
  hold(not ok and problem.code == 7, "an error comes out of " .. i)
end
print(pcall(error, "text", 0), pcall(error), select("#", pcall(error)), pcall(nil))
print(pcall(function() local x = nil; return x.field end))
print(pcall(function() return 1 + {} end))
print(pcall(function() return #5 end))
print(xpcall(function() error "inner" end, function(m) return "handled " .. m end))
print(pcall(string.rep)) print(pcall(setmetatable, 1, {}))
local function endless() return endless() + 1 end
local ok, problem = pcall(endless)
print(ok, problem:match "stack overflow")
print(pcall(table.sort, {3, 1, 2, 5, 4, 7, 9, 0}, function() error "in a comparison" end))
print(select(2, load "x = = 1"), select(2, load("x = 'unfinished")), load "return 1 + 1" ())
do
  local order = {}
  local closed <close> = setmetatable({}, {__close = function() order[#order + 1] = "outer" end})
  pcall(function()
    local inner <close> = setmetatable({}, {__close = function(_, e) order[#order + 1] = "inner " .. tostring(e) end})
    error("leaves", 0)
  end)
  print(table.concat(order, " "))
end

-- ---- Coroutines ------------------------------------------------------------------------------------------------------
local function generate(n) return coroutine.wrap(function() for i = 1, n do coroutine.yield(i) end end) end
local sum = 0
for v in generate(10000) do sum = sum + v end
print(sum)
local nested = coroutine.wrap(function()
  local inner = coroutine.wrap(function() pcall(coroutine.yield, "from pcall"); error "lost" end)
  coroutine.yield(inner())
  coroutine.yield(select(2, pcall(inner)))
end)
print(nested(), nested())
local threads = {}
for i = 1, 500 do
  threads[i] = coroutine.create(function(a) while true do a = a + coroutine.yield(a * i) end end)
  coroutine.resume(threads[i], 1)
end
local total = 0
for round = 1, 20 do for i = 1, 500 do total = total + select(2, coroutine.resume(threads[i], round)) end end
print(total, coroutine.status(threads[1]), coroutine.isyieldable(), coroutine.close(threads[1]), coroutine.status(threads[1]))
print(coroutine.resume(coroutine.create(function() error "dies" end)))

-- ---- Tables, sorting, collection -------------------------------------------------------------------------------------
for _, size in ipairs {1, 2, 3, 10, 100, 5000} do
  local list = {}
  for i = 1, size do list[i] = math.random(1, size) end
  table.sort(list, function(a, b) return a > b end)
  for i = 2, size do hold(list[i - 1] >= list[i], "sorted") end
end
local words = {}
for word in ("the quick brown fox jumps over the lazy dog and the end"):gmatch "%a+" do words[#words + 1] = word end
table.sort(words)
print(table.concat(words, " "), table.unpack(table.move(words, 1, 3, 2)))
local weak, finalized = setmetatable({}, {__mode = "k"}), 0
for i = 1, 100000 do
  weak[{}] = ("x"):rep(i % 100)
  if i % 10 == 0 then setmetatable({}, {__gc = function() finalized = finalized + 1 end}) end
end
collectgarbage() collectgarbage()
hold(next(weak) == nil and finalized == 10000, "all is collected")
collectgarbage "generational"
local keep = {}
for i = 1, 200000 do keep[i % 1000] = {i, tostring(i)} end
collectgarbage "incremental"
hold(collectgarbage "count" < 20000, "memory stays small")

-- ---- Files -----------------------------------------------------------------------------------------------------------
local name = "файл.tmp"
local file = assert(io.open(name, "wb"))
hold(file:write("line 1\n", 2, " ", 3.5, "\nline 3\r\n", all), "write")
hold(file:seek "cur" == 21 + 256, "position")
file:close()
print(pcall(file.write, file, "x"))
file = assert(io.open(name, "rb"))
print(file:read("l", "n", "n", "L", "l"))
hold(file:read "a" == all, "bytes survive") hold(file:read(1) == nil and file:read "a" == "", "end of file")
hold(file:seek("set", 5) == 5 and file:read(3) == "1\n2", "seek") hold(file:seek("end", -1) == 21 + 255, "from the end")
file:close()
file = assert(io.open(name, "a+"))
file:write "more" file:seek("set", 0)
print(file:read "l") file:seek("end", -4) print(file:read "a") file:close()
file = assert(io.open(name, "r+")) file:write "LINE" file:seek("set", 0) print(file:read "l") file:close()
for line in io.lines(name, "L") do io.write(#line, " ") end print()
print(io.open("no/such/file"), io.open(".", "w"), pcall(io.open, name, "rz"))
print(io.type(file), io.type(io.stdout), io.type(5))
hold(os.rename(name, "renamed.tmp") and os.remove "renamed.tmp", "rename and remove")
print(os.remove "renamed.tmp") print(os.rename("renamed.tmp", "x"))
file = io.tmpfile() file:write("0x1F 1e2 -7 .5 99x") file:seek "set"
print(file:read("n", "n", "n", "n", "n")) file:close()
file = io.open("numbers.tmp", "w") for i = 1, 20000 do file:write(i, " ", i / 8, "\n") end file:close()
sum = 0 for a, b in io.lines("numbers.tmp", "n", "n") do sum = sum + a + b end print(sum)
file = io.open("chunk.luac", "wb") file:write(string.dump(function(...) return select("#", ...) * 2 end)) file:close()
print(loadfile "chunk.luac"(1, 2, 3)) print(loadfile("chunk.luac", "t"))
file = io.open("chunk.lua", "w") file:write "#!/usr/bin/lua\nreturn ... , 'from a file'" file:close()
print(loadfile "chunk.lua"(5)) print(dofile "chunk.lua")
package.path = "./?.lua" print(require "chunk") print((pcall(require, "no.such.module")))

-- ---- The system ------------------------------------------------------------------------------------------------------
for _, time in ipairs {0, 1, 86399, 951782400, 1709164800, 1700000000, 2147483647, 4102444800} do
  print(os.date("!%Y-%m-%d %H:%M:%S %a %A %b %B %c %d %j %p %U %w %W %x %X %y %% %D %e %F %g %G %h %I %M %n %R %t %T %u %V", time))
  local fields = os.date("*t", time) fields.isdst = nil
  hold(os.time(fields) == time, "local time comes back: " .. time)
end
print(os.time {year = 2024, month = 14, day = -3, hour = 12} - os.time {year = 2025, month = 1, day = 28, hour = 12})
print(pcall(os.date, "%Ez"), pcall(os.date, "%Q"), pcall(os.time, {year = 2024}), os.difftime(10, 4))
hold(math.abs(os.time() - os.time(os.date "*t")) < 3 and os.clock() > 0, "now")
print(os.getenv "NO_SUCH_VARIABLE", os.setlocale(), os.setlocale "C", os.getenv "PROGRAM_ARGUMENTS" == nil or true)
print(failures, "failures")
