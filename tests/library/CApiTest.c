/* SPDX-License-Identifier: Apache-2.0 */
/* The public header serves C. Called by the tests in C++; gives the number of the first check that failed, else 0. */
#include <string.h>

#include "DetectionEngine/DetectionEngine.h"

static int32_t Answer(const char16_t* url, const char16_t* serverName) {
  return url[0] == u'h' && serverName != NULL ? 4 : 0;
}

int CheckCApi(void) {
  int32_t classification = 0;
  float spooficity = 1.0F;
  char16_t name[kZephNameRoom];
  uint8_t found = 7;
  const ZephWideString url = {u"http://example.org/", 19};

  if (ClassifyURL(NULL, &classification, name, &spooficity) != 1) return 1;
  if (ClassifyURL(u"about:blank", &classification, name, &spooficity) != 0) return 2;
  if (classification != kZephTrustworthy || spooficity != 0.0F || name[0] != u'M') return 3;
  if (ClassifySite(NULL, &classification, name, NULL, NULL, NULL) != 1) return 4;
  if (ClassifyDocument(NULL, &classification, name, NULL) != 1) return 5;
  if (SetServerCallbacks(Answer, NULL) != 0 || CheckURL(url, &classification) != 0 || classification != 4) return 6;
  if (SetServerCallbacks(NULL, Answer) != 0 || ReportURL(url.text, 3, NULL) != 0) return 7;
  if (ReportURL(NULL, 3, NULL) != 1 || ReportURL(u"no url", 3, NULL) != 1) return 8;
  SetServerCallbacks(NULL, NULL);
  if (SetPrivacy(2) != 0 || SetPrivacy(3) != -1 || GetPrivacy() != 2 || SetPrivacy(0) != 2) return 9;
  if (IsTRLMBrandID(u"x", &found) != 0 || found != 0 || IsTRLMBrandID(u"x", NULL) != 1) return 10;
  if (GetServerName(NULL) != 1) return 11;
  if (BuildCabinet(NULL, 1, "x", "/tmp") != 0 || PackFiles(NULL, 1, "/tmp/x") != 0) return 12;
  EngineReserved(1, 2, 3);
  ReleaseEngineResults(NULL);
  SetConfigFileBaseName(NULL);
  return 0;
}
