/* SPDX-License-Identifier: Apache-2.0 */
/*
 * The public face of libDetectionDocuments, for C and C++: documents for the engine without a browser.
 *
 * A gateway that has the bytes of a page makes a document of them, has it classified by ClassifySite of
 * DetectionEngine.h, and releases it:
 *
 *   ZephDocument *document = CreateHtmlDocument(bytes, length, u"http://www.example.test/", NULL);
 *   if (document != NULL) result = ClassifySite(document, &classification, siteName, NULL, NULL, &spooficity);
 *   ReleaseHtmlDocument(document);
 *
 * The conventions of DetectionEngine.h hold. A document is used by one thread at a time; different documents by any
 * number of threads. Nothing of a page is executed, fetched or followed.
 */
#ifndef DETECTION_DOCUMENTS_H
#define DETECTION_DOCUMENTS_H

#include <stddef.h>

#include "DetectionEngine/DetectionEngine.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Makes a document from an HTML page. Time and memory are linear in the length, whatever the bytes are.
 * bytes, length: the page as it came over the wire, decoded from any transfer or content encoding. Its character
 *   encoding is that of a byte order mark or of a META in it, else UTF-8, else windows-1252. Not kept. Null only with
 *   length 0, which is an empty page. Of a page beyond 256 MiB only the beginning is read.
 * url: where the page came from; links are taken against it. Null stands for an unknown URL.
 * referrer: the page that led there, or null.
 * The document, which the caller releases; null when bytes is null and length isn't 0, or for want of memory. */
ZEPH_EXPORT ZephDocument *CreateHtmlDocument(const void *bytes, size_t length, const char16_t *url,
                                             const char16_t *referrer);

/* Destroys a document of CreateHtmlDocument, with all that it has lent; null is accepted. */
ZEPH_EXPORT void ReleaseHtmlDocument(ZephDocument *document);

#ifdef __cplusplus
} /* extern "C" */
#endif

#endif /* DETECTION_DOCUMENTS_H */
