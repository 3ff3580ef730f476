-- SPDX-License-Identifier: Apache-2.0
--[[
Asks zeph about each letter: POST of the whole letter to the HTTP door of zeph serve, without holding rspamd up. Each
verdict is a symbol; its options name the imitated brand and the first reason. docs/gateways/rspamd.md tells how it is set up.
]]

local rspamd_config = rspamd_config
local rspamd_hash = require "rspamd_cryptobox_hash"
local rspamd_http = require "rspamd_http"
local rspamd_logger = require "rspamd_logger"
local ucl = require "ucl"

local N = "zeph"

local settings = {
  url = "http://127.0.0.1:8080/v1/check", -- the door; nothing is sent anywhere else
  token = nil, -- that the door asks of its clients
  timeout = 5.0, -- seconds
  max_size = 10 * 1024 * 1024, -- bytes of a letter; a longer one isn't asked about
  cache_size = 1000, -- answers that each worker keeps
  cache_expire = 300, -- seconds; a package that is swapped counts after it
  max_answer = 16 * 1024 * 1024, -- bytes
  weights = {},
}

local symbols = {
  ["trustworthy"] = { "ZEPH_TRUSTWORTHY", 0.0, "Every link and page belongs to whom it names" },
  ["unclassified"] = { "ZEPH_UNCLASSIFIED", 0.0, "Nothing speaks clearly for or against the links and pages" },
  ["spoofing"] = { "ZEPH_SPOOFING", 8.0, "A link or a page imitates a brand" },
  ["spoofing-confirmed"] = { "ZEPH_SPOOFING_CONFIRMED", 10.0, "A link or a page imitates a brand, and a server said so" },
  ["script-attack"] = { "ZEPH_SCRIPT_ATTACK", 8.0, "A link carries a script into a page" },
  ["not-judged"] = { "ZEPH_NOT_JUDGED", 0.0, "There was nothing to judge, or it couldn't be judged" },
}
local fail = { "ZEPH_FAIL", 0.0, "The engine had no answer" }

-- Two generations: when the young one is full it becomes the old one. Never more than twice cache_size answers.
local young, old, young_count = {}, {}, 0

local function cached(key, now)
  local found = young[key] or old[key]
  if found and found.expires > now then
    return found
  end
  return nil
end

local function keep(key, answer)
  if young_count >= settings.cache_size then
    old, young, young_count = young, {}, 0
  end
  young[key] = answer
  young_count = young_count + 1
end

local function text(value)
  if type(value) ~= "string" or value == "" then
    return nil
  end
  return (value:sub(1, 200):gsub("%c", " "))
end

-- The part that the letter has its verdict from: the one with this verdict and the highest score.
local function decisive(letter)
  local found = nil
  if type(letter.parts) ~= "table" then
    return letter
  end
  for _, part in ipairs(letter.parts) do
    if part.verdict == letter.verdict and
        (not found or (tonumber(part.spooficity) or 0) > (tonumber(found.spooficity) or 0)) then
      found = part
    end
  end
  return found and decisive(found) or letter
end

-- Only what symbols need is kept of an answer.
local function understand(body)
  local parser = ucl.parser()
  local read, problem = parser:parse_string(tostring(body))
  if not read then
    return nil, problem
  end
  local letter = parser:get_object()
  if type(letter) ~= "table" or not symbols[letter.verdict] then
    return nil, "no verdict in the answer"
  end
  local part = decisive(letter)
  local options = {}
  local held = letter.verdict ~= "trustworthy" and letter.verdict ~= "unclassified" and letter.verdict ~= "not-judged"
  if held then
    options[#options + 1] = text(letter.siteName)
  end
  local first = type(part.reasons) == "table" and part.reasons[1]
  options[#options + 1] = text(letter.reason) or (type(first) == "table" and text(first.sentence)) or nil
  options[#options + 1] = held and text(part.where) or nil
  return { verdict = letter.verdict, options = options }
end

local function insert(task, symbol, options)
  task:insert_result(symbol, 1.0, options)
end

local function check(task)
  local size = task:get_size()
  if size == 0 or size > settings.max_size then
    insert(task, "ZEPH_NOT_JUDGED", { "longer than max_size" })
    return
  end
  local content = task:get_content()
  -- Of every byte: what a part is called decides what is judged, so a digest of the parts' bytes alone would let a harmless
  -- twin of a letter answer for it.
  local key = rspamd_hash.create(content):hex()
  local known = cached(key, os.time())
  if known then
    insert(task, symbols[known.verdict][1], known.options)
    return
  end

  local function failed(why)
    rspamd_logger.warnx(task, "zeph: no answer: %s", why)
    insert(task, fail[1], { text(tostring(why)) or "no answer" })
  end

  local function on_answer(problem, code, body)
    if problem or code ~= 200 then
      failed(problem or ("HTTP " .. tostring(code)))
      return
    end
    local answer, why = understand(body)
    if not answer then
      failed(why)
      return
    end
    answer.expires = os.time() + settings.cache_expire
    keep(key, answer)
    insert(task, symbols[answer.verdict][1], answer.options)
  end

  local headers = {}
  if settings.token then
    headers["Authorization"] = "Bearer " .. settings.token
  end
  if not rspamd_http.request {
    task = task,
    url = settings.url,
    method = "post",
    mime_type = "message/rfc822",
    headers = headers,
    body = content,
    callback = on_answer,
    timeout = settings.timeout,
    max_size = settings.max_answer,
  } then
    failed("the request couldn't be made")
  end
end

local given = rspamd_config:get_all_opt(N)
if not given then
  rspamd_logger.infox(rspamd_config, "zeph: not configured")
  return
end
for name, value in pairs(given) do
  settings[name] = value
end
-- What isn't told isn't done: reasons come only on request.
if not settings.url:find("?", 1, true) then
  settings.url = settings.url .. "?explain=1"
end

local id = rspamd_config:register_symbol {
  name = "ZEPH_CHECK",
  type = "callback",
  callback = check,
  flags = "empty,nostat",
}
local function register(symbol)
  rspamd_config:register_symbol { name = symbol[1], type = "virtual", parent = id }
  rspamd_config:set_metric_symbol {
    name = symbol[1],
    score = tonumber(settings.weights[symbol[1]]) or symbol[2],
    description = symbol[3],
    group = "zeph",
  }
end
for _, symbol in pairs(symbols) do
  register(symbol)
end
register(fail)
