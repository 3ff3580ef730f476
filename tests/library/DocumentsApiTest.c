/* SPDX-License-Identifier: Apache-2.0 */
/* The documents' public header serves C. Gives the number of the first check that failed, else 0. */
#include <string.h>

#include "documents/DetectionDocuments.h"

int CheckDocumentsApi(void) {
  static const char page[] = "<title>t</title><form action=x><input type=password></form>";
  int32_t classification = 0;

  ReleaseHtmlDocument(NULL);
  if (CreateHtmlDocument(NULL, 1, NULL, NULL) != NULL) return 1;
  ZephDocument *document = CreateHtmlDocument(NULL, 0, NULL, NULL);
  if (document == NULL) return 2;
  if (ClassifySite(document, NULL, NULL, NULL, NULL, NULL) != 1) return 3;
  ReleaseHtmlDocument(document);
  document = CreateHtmlDocument(page, strlen(page), u"about:blank", u"http://from.example/");
  if (document == NULL) return 4;
  /* A page that no server sent is trusted without a look at it, but only by an engine that has its rules. */
  if (ClassifyDocument(document, &classification, NULL, NULL) == 0 && classification != kZephTrustworthy) return 5;
  ReleaseHtmlDocument(document);
  return 0;
}
