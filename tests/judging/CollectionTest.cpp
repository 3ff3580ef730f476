// SPDX-License-Identifier: Apache-2.0
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>
#include <unistd.h>
#include <zlib.h>

#include "judging/Collections.h"

namespace zeph {
namespace {

namespace fs = std::filesystem;
using Strings = std::vector<std::string>;

/// One member of a gzip file.
std::string Packed(std::string_view bytes, int windowBits = MAX_WBITS + 16) {
  z_stream stream{};
  EXPECT_EQ(deflateInit2(&stream, Z_BEST_SPEED, Z_DEFLATED, windowBits, 9, Z_DEFAULT_STRATEGY), Z_OK);
  std::string out(deflateBound(&stream, bytes.size()) + 64, '\0');
  stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(bytes.data()));
  stream.avail_in = static_cast<uInt>(bytes.size());
  stream.next_out = reinterpret_cast<Bytef*>(out.data());
  stream.avail_out = static_cast<uInt>(out.size());
  EXPECT_EQ(deflate(&stream, Z_FINISH), Z_STREAM_END);
  out.resize(stream.total_out);
  deflateEnd(&stream);
  return out;
}

std::string Record(std::string_view headers, std::string_view block) {
  return std::string("WARC/1.1\r\n").append(headers).append("\r\nContent-Length: ") + std::to_string(block.size()) +
         "\r\n\r\n" + std::string(block) + "\r\n\r\n";
}
std::string Response(std::string_view url, std::string_view headers, std::string_view body) {
  return Record("WARC-Type: response\r\nContent-Type: application/http; msgtype=response\r\nWARC-Target-URI: " +
                    std::string(url),
                "HTTP/1.1 200 OK\r\n" + std::string(headers) + "\r\n\r\n" + std::string(body));
}

class Collections : public testing::Test {
 protected:
  void SetUp() override { fs::create_directories(root_); }
  void TearDown() override { fs::remove_all(root_); }

  /// "name!refusal", "name=address" or "name(type)bytes" of each entry; "none" for a file that is no collection.
  Strings Entries(const std::string& name, const std::string& bytes) const {
    const std::string path = (root_ / name).string();
    std::ofstream(path, std::ios::binary) << bytes;
    const auto collection = OpenCollection(path, "");
    if (collection == nullptr) return {"none"};
    Strings entries;
    while (const auto input = collection->Next()) {
      std::string text = fs::path(input->text).string().substr(root_.string().size() + 1);
      if (!input->refusal.empty()) {
        text += "!" + input->refusal;
      } else if (input->content) {
        text += "(" + input->content->mediaType + ")" + input->content->bytes.substr(0, 100);
        const bool isNamed = text.find(": http") == std::string::npos || text.find(input->content->url) != std::string::npos;
        EXPECT_TRUE(isNamed) << text;
      } else {
        text += "=" + input->address;
      }
      entries.push_back(std::move(text));
    }
    return entries;
  }

  fs::path root_ = fs::temp_directory_path() / ("zeph-collections-" + std::to_string(::getpid()));
};

TEST_F(Collections, GiveEachEntryWithItsName) {
  const std::string packed = Packed("<p>a");
  std::ostringstream length;
  length << std::hex << packed.size() - 5;
  const std::string warc =
      Record("WARC-Type: warcinfo", "software: x") +
      Response("http://a.test/", "Content-Type: text/html; charset=utf-8\r\nTransfer-Encoding: chunked\r\nContent-Encoding: gzip",
               "5;x=y\r\n" + packed.substr(0, 5) + "\r\n" + length.str() + "\r\n" + packed.substr(5) + "\r\n0\r\n\r\n") +
      Response("http://a.test/x.png", "Content-Type: image/png", "PNG") +
      Response("<http://b.test/>", "content-type:text/html\r\nContent-Encoding: deflate", Packed("<p>b", -MAX_WBITS)) +
      Response("http://c.test/", "Content-Type: text/html\r\nContent-Encoding: br", "xxx") +
      Record("WARC-Type: resource\r\nContent-Type: text/html\r\nWARC-Target-URI: http://d.test/", "<p>d");
  const Strings pages = {": http://a.test/(text/html; charset=utf-8)<p>a", ": http://b.test/(text/html)<p>b",
                         ": http://c.test/!its content encoding can't be undone: br", ": http://d.test/(text/html)<p>d"};
  const std::string mbox =
      "From a@b.test Mon Jan  1 12:00:00 2024\nSubject: 1\n\n>From x\nFrom here on\n\nFrom there\n\n"
      "From - Mon Jan  1 12:00:00 2024\r\nSubject: 2\r\n\r\nb\r\n";
  const std::string har =
      R"({"log":{"version":"1.2","creator":{"entries":["log"]},"pages":[{"entries":[1]}],"entries":[)"
      R"({"request":{"url":"http://a.test/"},"response":{"content":{"mimeType":"text/html; charset=latin1","text":"<p>\u00e4]}\""}}}, )"
      R"({"request":{"url":"http://a.test/x.js"},"response":{"content":{"mimeType":"text/javascript","text":"<p>"}}},)"
      R"({"request":{"url":"http://b.test/"},"response":{"content":{"mimeType":"text/html","encoding":"base64","text":"PHA+Yg=="}}},)"
      R"({"request":{"url":"http://c.test/"},"response":{"content":{"mimeType":"text/html"}}},{"request":1,}]}})";
  struct Row {
    std::string name;
    std::string bytes;
    Strings entries;
  };
  const auto named = [](const std::string& name, const Strings& entries) {
    Strings all;
    for (const std::string& entry : entries) all.push_back(name + entry);
    return all;
  };
  const Row rows[] = {
      {"crawl.warc", warc, named("crawl.warc", pages)},
      {"crawl.warc.gz", Packed(warc.substr(0, 50)) + Packed(warc.substr(50)), named("crawl.warc.gz", pages)},
      {"mails.mbox", mbox,
       {"mails.mbox: letter 1(message/rfc822)Subject: 1\n\nFrom x\nFrom here on\n\nFrom there\n\n",
        "mails.mbox: letter 2(message/rfc822)Subject: 2\r\n\r\nb\r\n"}},
      {"session.har", har,
       {"session.har: http://a.test/(text/html; charset=utf-8)<p>\xC3\xA4]}\"", "session.har: http://b.test/(text/html)<p>b",
        "session.har: http://c.test/!its content wasn't recorded",
        "session.har: entry 5!/request: the name of a member is expected (line 1, column 14)"}},
      {"urls.txt", "# seen\n\nhttp://a.test/\tx\r\n b.test ", {"urls.txt: http://a.test/=http://a.test/", "urls.txt: b.test=b.test"}},
      {"urls.gz", Packed("c.test\n"), {"urls.gz: c.test=c.test"}},
      {"page.html.gz", Packed("<p>page"), {"page.html.gz()<p>page"}},
      {"notes.txt", "Dear diary,\n", {"none"}},
      {"page.html", "<p>", {"none"}},
      {"empty.gz", Packed(""), {"empty.gz!no address in it"}},
      {"none.warc", Record("WARC-Type: warcinfo", ""), {"none.warc!no HTML page in it"}},
  };
  for (const Row& row : rows) EXPECT_EQ(Entries(row.name, row.bytes), row.entries) << row.name;
}

TEST_F(Collections, BearWhatIsBrokenOrMeantToHarm) {
  const std::string page = Response("http://a.test/", "Content-Type: text/html", "<p>a");
  const std::string much(kMaxEntry + 1, 'x');
  const std::string good = "x: http://a.test/(text/html)<p>a";
  const std::string tooLong = "!longer than the 64 MiB that are read of one";
  struct Row {
    std::string_view what;
    std::string bytes;
    Strings entries;
  };
  const Row rows[] = {
      {"cut record", page + page.substr(0, page.size() - 6), {good, "x: http://a.test/(text/html)<p", "x!the file ends in a record at byte " + std::to_string(2 * page.size() - 6) + "; what follows is left out"}},
      {"no record", page + "rubbish\n" + page, {good, "x!no record begins at byte " + std::to_string(page.size() + 8) + "; what follows is left out"}},
      {"length that is none", "WARC/1.0\r\nContent-Length: -5\r\n\r\n", {"x!a record without a length at byte 32; what follows is left out"}},
      {"long page, then a good one", Packed(Response("http://b.test/", "Content-Type: text/html", much) + page), {"x: http://b.test/" + tooLong, good}},
      {"page that unpacks to much", Response("http://b.test/", "Content-Type: text/html\r\nContent-Encoding: gzip", Packed(much)) + page,
       {"x: http://b.test/!unpacked, it is longer than the 64 MiB that are read of one", good}},
      {"broken packing", Packed(page + page).substr(0, 60), {"x!what follows can't be read: truncated gzip input"}},
      {"long letter", Packed("From a 1:1\n" + much + "\n\nFrom b 1:1\n\nb\n"), {"x: letter 1" + tooLong, "x: letter 2(message/rfc822)\nb\n"}},
  };
  for (const Row& row : rows) EXPECT_EQ(Entries("x", row.bytes), row.entries) << row.what;
}

}  // namespace
}  // namespace zeph
