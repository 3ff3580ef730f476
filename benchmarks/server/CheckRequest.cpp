// SPDX-License-Identifier: Apache-2.0
// Writes a check and a report as the engine sends them, for load generators: CheckRequest FOLDER makes the files path,
// check and report.
#include <fstream>
#include <iostream>
#include <string>

#include "DetectionEngine/base/StringTable.h"
#include "DetectionEngine/platform/CodePage.h"
#include "DetectionEngine/server/ServerRequests.h"

int main(int count, char** arguments) {
  using namespace zeph;
  if (count != 2) {
    std::cerr << "usage: CheckRequest FOLDER\n";
    return 2;
  }
  const std::string folder = arguments[1];
  const auto write = [&](const char* name, const std::string& text) { std::ofstream(folder + "/" + name) << text; };
  const std::string url = SealUrl(u"http://signin.examplebank.evil.test/account/login.php?session=81723&next=%2Fhome");
  write("path", Narrow(StringEntry(0xBA)));
  write("check", "cmd=" + Narrow(StringEntry(0xBC)) + "&ver=2.0&PRIV=0&el=" + url);
  write("report", "cmd=" + Narrow(StringEntry(0xBD)) + "&ver=2.0&el=" + url + "&er=3");
  return 0;
}
