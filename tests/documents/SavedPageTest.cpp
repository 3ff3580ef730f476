// SPDX-License-Identifier: Apache-2.0
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>

#include <gtest/gtest.h>
#include <unistd.h>

#include "DetectionEngine/platform/CodePage.h"
#include "documents/ImageSize.h"
#include "documents/SavedPage.h"
#include "documents/html/HtmlDocument.h"

namespace zeph {
namespace {

using std::string_literals::operator""s;

TEST(ImageSize, IsReadFromTheHeader) {
  struct Row {
    std::string_view what;
    std::string bytes;
    ImageSize size;  ///< 0 by 0: none
  };
  const std::string png = "\x89PNG\r\n\x1A\n\0\0\0\x0DIHDR\0\0\x01\x02\0\0\0\x03\x08\x02"s;
  const std::string jpeg = "\xFF\xD8\xFF\xE0\0\x04xx\xFF\xFF\xC4\0\x03x\xFF\xC2\0\x11\x08\0\x1E\0\x28\x03"s;
  const Row rows[] = {
      {"PNG", png, {258, 3}},
      {"PNG cut short", png.substr(0, 23), {}},
      {"GIF", "GIF87a\x05\0\x06\x01\0"s, {5, 262}},
      {"GIF of no width", "GIF89a\0\0\x06\x01\0"s, {}},
      {"JPEG, progressive, behind other segments", jpeg, {40, 30}},
      {"JPEG cut short", jpeg.substr(0, jpeg.size() - 6), {}},
      {"JPEG whose segment has no length", "\xFF\xD8\xFF\xE0\0\0\xFF\xC0\0\x11\x08\0\x1E\0\x28"s, {}},
      {"WebP, lossy", "RIFF....WEBPVP8 ....\x01\x02\x03\x9D\x01\x2A\x40\x01\xF0\x80...."s, {320, 240}},
      {"WebP, lossless", "RIFF....WEBPVP8L....\x2F\x09\xC0\x04\0........"s, {10, 20}},
      {"WebP, extended", "RIFF....WEBPVP8X........\x0F\0\0\x1F\0\0...."s, {16, 32}},
      {"BMP from the top", "BM............\x28\0\0\0\x64\0\0\0\xCE\xFF\xFF\xFF...."s, {100, 50}},
      {"BMP of old", "BM............\x0C\0\0\0\x07\0\x08\0....."s, {7, 8}},
      {"BMP of the largest negative height", "BM............\x28\0\0\0\x64\0\0\0\0\0\0\x80...."s, {}},
      {"no image", "<svg width=5>", {}},
      {"nothing", "", {}},
  };
  for (const Row& row : rows) EXPECT_EQ(ReadImageSize(row.bytes).value_or(ImageSize{}), row.size) << row.what;

  EXPECT_EQ(ReadDataUrlImageSize(u"DATA:image/gif,GIF89a%05%00%06%00"), (ImageSize{5, 6}));
  EXPECT_EQ(ReadDataUrlImageSize(u"data:image/gif;charset=x;base64, R0lG\nODlh BQAG%41AAAA"), (ImageSize{5, 6}));
  EXPECT_EQ(ReadDataUrlImageSize(u"data:image/gif;base64"), std::nullopt);
  EXPECT_EQ(ReadDataUrlImageSize(u"http://a.test/,GIF89a"), std::nullopt);
}

constexpr std::string_view kSnapshot =
    "From: <Saved by a browser>\r\n"
    "Snapshot-Content-Location: http://www.example.test/login\r\n"
    "MIME-Version: 1.0\r\n"
    "Content-Type: multipart/related; type=\"text/html\"; boundary=\"--b\"\r\n"
    "\r\n"
    "----b\r\n"
    "Content-Type: text/html; charset=windows-1251\r\n"
    "Content-ID: <frame-1@mhtml.blink>\r\n"
    "Content-Transfer-Encoding: quoted-printable\r\n"
    "\r\n"
    "<title>=CF=E0</title><p>pass=\r\nword<img src=3D\"logo.gif\"><img src=3D\"cid:two\"><iframe "
    "src=3Dcid:f></iframe>\r\n"
    "<script src=3Da.js></script>\r\n"
    "----b\r\n"
    "Content-Type: text/html\r\n"
    "Content-ID: <f>\r\n"
    "\r\n"
    "<p>inner\r\n"
    "----b\r\n"
    "Content-Type: image/gif\r\n"
    "Content-Transfer-Encoding: base64\r\n"
    "Content-Location: http://www.example.test/\r\n logo.gif\r\n"
    "\r\n"
    "R0lGODlhBQAGAAAA\r\n"
    "----b\r\n"
    "Content-Type: image/gif\r\n"
    "Content-Transfer-Encoding: base64\r\n"
    "Content-ID: <two>\r\n"
    "\r\n"
    "R0lGODlhCQAIAAAA\r\n"
    "----b\r\n"
    "Content-Type: application/javascript\r\n"
    "Content-Location: http://www.example.test/a.js\r\n"
    "\r\n"
    "var a = 1;\r\n"
    "----b--\r\n";

TEST(SavedPage, GivesItsRootPartWithItsParts) {
  std::string error;
  std::optional<SavedPage> page = ReadMhtml(kSnapshot, error);
  ASSERT_TRUE(page) << error;
  EXPECT_EQ(Narrow(page->url), "http://www.example.test/login");
  EXPECT_EQ(page->charset, "windows-1251");
  HtmlDocument document(page->html, {page->url, {}, page->charset, page->resources});
  EXPECT_EQ(Narrow(*document.get_title().value), "\xD0\x9F\xD0\xB0");
  EXPECT_EQ(Narrow(*document.get_body().value->QueryElement()->get_innerText().value), "password\r\n");
  IHTMLElementCollection* const images = document.get_images().value;
  EXPECT_EQ(images->item(0).value->QueryImg()->get_width().value, 5);
  EXPECT_EQ(images->item(1).value->QueryImg()->get_height().value, 8);
  ASSERT_NE(document.UrlCache(), nullptr);
  EXPECT_EQ(document.UrlCache()->Retrieve("http://www.example.test/a.js").value_or("").substr(0, 10), "var a = 1;");
  EXPECT_EQ(document.UrlCache()->Retrieve("http://www.example.test/b.js"), std::nullopt);
}

TEST(SavedPage, TakesTheRootThatTheMessageNames) {
  const auto message = [](std::string_view head, std::string_view parts) {
    return "MIME-Version: 1.0\r\n" + std::string(head) + "\r\n" + std::string(parts);
  };
  const std::string two =
      "--b\r\nContent-Type: text/html\r\nContent-ID: <x>\r\nContent-Location: http://x.test/\r\n\r\nX\r\n"
      "--b\r\nContent-Type: text/html\r\nContent-ID: <y>\r\nContent-Location: http://y.test/\r\n\r\nY\r\n--b--\r\n";
  struct Row {
    std::string bytes;
    std::string_view html;
    std::string_view url;
    std::string_view error;
  };
  const Row rows[] = {
      {message("Content-Type: multipart/related; boundary=b\r\n", two), "X", "http://x.test/", ""},
      {message("Content-Type: multipart/related; boundary=b; start=\"<y>\"\r\n", two), "Y", "http://y.test/", ""},
      {message("Content-Type: multipart/related; boundary=b; start=\"<z>\"\r\n", two), "X", "http://x.test/", ""},
      {message("Content-Type: text/html\r\nContent-Location: http://o.test/\r\n", "O"), "O", "http://o.test/", ""},
      {message("Content-Type: multipart/related; boundary=b\r\n", "--b\r\nContent-Type: image/gif\r\n\r\nGIF\r\n--b--"),
       "", "", "no HTML part"},
      {message("Content-Type: multipart/related; boundary=b\r\n", two.substr(0, 92)), "X", "http://x.test/", ""},
      {"", "", "", "no MIME message"},
      {"\0\xFF\0"s, "", "", "no MIME message"},
  };
  for (const Row& row : rows) {
    std::string error;
    const std::optional<SavedPage> page = ReadMhtml(row.bytes, error);
    EXPECT_EQ(error, row.error) << row.bytes;
    if (!page) continue;
    EXPECT_EQ(page->html, row.html) << row.bytes;
    EXPECT_EQ(Narrow(page->url), row.url) << row.bytes;
  }
}

TEST(SavedPage, BearsAddressesOfAnyDepth) {
  std::string groups;
  for (int i = 0; i < 200'000; ++i) groups += "a:";
  for (const char* header : {"To", "from", "CC", "Bcc", "Sender", "Reply-To ", "Resent-To"}) {
    const std::string inner = std::string(header) + ": b:\r\n " + groups + "\r\nContent-Type: text/html\r\n\r\nTo: read";
    std::string error;
    const auto page = ReadMhtml("MIME-Version: 1.0\r\n" + inner, error);
    ASSERT_TRUE(page) << header << ' ' << error;
    EXPECT_EQ(page->html, "To: read") << header;
    (void)ReadMhtml("MIME-Version: 1.0\r\nContent-Type: message/rfc822\r\n\r\n" + inner, error);
  }
}

TEST(SavedPage, FindsTheFilesBesideIt) {
  namespace fs = std::filesystem;
  const fs::path root = fs::temp_directory_path() / ("zeph-saved-" + std::to_string(::getpid()));
  fs::create_directories(root / "page" / "my page_files");
  std::ofstream(root / "secret.gif") << "GIF89a\x01\x01\x01\x01";
  const fs::path own = root / "page" / "my page_files";
  const std::string gif = "GIF89a\x05\x01\x06\x01";
  std::ofstream(own / "a.gif") << gif;
  std::ofstream(own / "saved_resource") << gif;
  std::ofstream(own / "a.JS.download") << "var a;";
  std::ofstream(own / "diary.txt") << "dear diary";
  std::ofstream(own / ".htaccess.js") << "deny";
  std::ofstream(root / "page" / "b.gif") << gif;
  std::ofstream(root / "page" / "b.js") << "var b;";
  fs::create_symlink(root / "secret.gif", own / "link.gif");
  fs::create_symlink(own / ".htaccess.js", own / "link.js");
  fs::create_directory_symlink(root / "page", root / "page" / "my page.files");
  const std::shared_ptr<const PageResources> files =
      FilesBeside((root / "page" / "my page.html").string(), {u"http://www.example.test/x/login.php?a=/b", u""});
  const std::pair<std::string_view, bool> rows[] = {
      {"my%20page_files/a.gif", true},
      {"./my page_files/a.gif?v=1#x", true},
      {"http://www.example.test/x/my%20page_files/a.gif", true},
      {"http://www.example.test/my%20page_files/a.gif", false},
      {"my page_files/b.gif", false},
      {"my page_files", false},
      {"../secret.gif", false},
      {"my%20page_files/..%2F..%2Fsecret.gif", false},
      {"my page_files/saved_resource", true},
      {"my page_files/a.JS.download", true},
      {"my page_files/diary.txt", false},
      {"my page_files/.htaccess.js", false},
      {"my page_files/link.gif", false},
      {"my page_files/link.js", false},
      {"my page.files/b.js", false},
      {"b.gif", false},
      {"b.js", false},
      {"/etc/passwd", false},
      {"file:///etc/passwd", false},
      {"", false},
  };
  for (const auto& [url, found] : rows) EXPECT_EQ(files->Find(url).has_value(), found) << url;
  fs::remove_all(root);
}

}  // namespace
}  // namespace zeph
