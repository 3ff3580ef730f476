/* SPDX-License-Identifier: Apache-2.0 */
/*
 * The public face of libDetectionEngine, for C and C++.
 *
 * Conventions
 *  1. Wide text is UTF-16 in char16_t, zero-terminated unless a length stands beside it. Narrow text is UTF-8.
 *  2. A function keeps none of the pointers that it is given, except the callbacks.
 *  3. Results are 32-bit: 0 success, 1 a null argument or no configuration, others as each function says.
 *  4. Buffers for names have no length: give room for kZephNameRoom characters. No more are written, the
 *     terminator among them; a longer company or server name of the configuration is cut.
 *  5. Every function may be called from any thread at any time; nothing throws.
 *  6. Detail goes to the log, see docs/integration.md; GetLoadFailure tells why there is no configuration.
 *  7. Threads may be in the library when the program returns from main: what they use stays until the process is gone.
 *     A child process goes on with the configuration that was in force when it was forked, or loads for itself.
 *  8. In a process with raised privileges (set-user-id and the like) no environment variable has a say.
 */
#ifndef DETECTION_ENGINE_H
#define DETECTION_ENGINE_H

#include <stddef.h>
#include <stdint.h>
#ifndef __cplusplus
#include <uchar.h>
#endif

#if defined(__GNUC__)
#define ZEPH_EXPORT __attribute__((visibility("default")))
#else
#define ZEPH_EXPORT
#endif

#ifdef __cplusplus
namespace zeph {
class IHTMLDocument2;
struct EngineResults;
}  // namespace zeph
typedef zeph::IHTMLDocument2 ZephDocument;     /* DetectionEngine/Document.h */
typedef zeph::EngineResults ZephEngineResults; /* DetectionEngine/EngineResults.h */
extern "C" {
#else
typedef struct ZephDocument ZephDocument;
typedef struct ZephEngineResults ZephEngineResults;
#endif

/* Room in characters for a company or server name, with its terminator. */
enum { kZephNameRoom = 1024 };

/* Classifications. */
enum {
  kZephTrustworthy = 1,
  kZephSpoofing = 2,
  kZephUnclassified = 3,
  kZephSpoofingConfirmed = 5, /* by the server, or found by ClassifyURL */
  kZephScriptAttack = 6
};

/* Results of ClassifySite, ClassifyDocument and ClassifyURL under which nothing was judged, whatever *classification
 * says: no memory was left; the page is made so that reading it costs more than a page of its size may. */
enum {
  kZephOutOfMemory = -2147024882, /* 0x8007000E */
  kZephTooCostly = -2147023080    /* 0x80070718 */
};

/* A wide text by pointer and length in characters; null with length 0 is the empty text. */
typedef struct ZephWideString {
  const char16_t *text;
  size_t length;
} ZephWideString;

/* Take the place of the engine's own server calls. url and serverName live for the call only. */
typedef int32_t (*ZephCheckCallback)(const char16_t *url, const char16_t *serverName);
typedef int32_t (*ZephReportCallback)(const char16_t *url, const char16_t *serverName);

/* 1: asks the server (or the check callback) about a URL. Writes the answer to *classification, 0 when the
 * exchange failed; null: nothing is asked. Blocks for the exchange. Always 0. */
ZEPH_EXPORT int32_t CheckURL(ZephWideString url, int32_t *classification);

/* 2: writes five integers: 0, major, minor, patch of the library's version, and 2 (1 on 32-bit Windows).
 * 1 when version is null or the module's file carries no version. */
ZEPH_EXPORT int32_t GetEngineVersion(int32_t *version);

/* 4: reports a URL. reportCode is the caller's; context may be null. 0, or 1 for a null URL, one that can't be
 * decoded, or a failed exchange. Blocks for the exchange. */
ZEPH_EXPORT int32_t ReportURL(const char16_t *url, int32_t reportCode, const char16_t *context);

/* 7: sets both callbacks; null clears. Always 0. */
ZEPH_EXPORT int32_t SetServerCallbacks(ZephCheckCallback checkCallback, ZephReportCallback reportCallback);

/* 8: copies the name of the classification server. 1, with an empty text, when the configuration has none; 1
 * when serverName is null or no configuration could be loaded. */
ZEPH_EXPORT int32_t GetServerName(char16_t *serverName);

/* 9: ClassifySite without pageUrl and engineResults. */
ZEPH_EXPORT int32_t ClassifyDocument(ZephDocument *document, int32_t *classification, char16_t *siteName, float *spooficity);

/* 10: classifies a bare URL by the rules of URLs alone; never asks the server about it.
 * classification: out, 1, 3, 5 or 6; 3 also when the call fails after its arguments were accepted.
 * A URL that carries a script attack (6) is reported to the server as the privacy level allows.
 * siteName: out, may be null, written only for a URL held for spoofing whose brand has a name, and
 * ("Microsoft") for a URL that is neither http, https nor ftp, which is trustworthy without a look.
 * spooficity: out, may be null, 0.0 to 1.0.
 * 0; 1 when url or classification is null or no configuration could be loaded; -1 when url can't be decoded;
 * kZephOutOfMemory. */
ZEPH_EXPORT int32_t ClassifyURL(const char16_t *url, int32_t *classification, char16_t *siteName, float *spooficity);

/* 11: does nothing. */
ZEPH_EXPORT void EngineReserved(int32_t first, int32_t second, int32_t third);

/* 12: sets privacy, the log's level, the vendor's name (null:
 * unchanged), whether a package must be signed, and the key of the settings. Meant for the start, before other
 * threads work. Always 0. A vendor's name that is no folder's (empty, ".", "..", with "/", of 260 bytes or more) leaves
 * the one before. */
ZEPH_EXPORT int32_t SetPreferences(int32_t reserved, int32_t privacy, int32_t logLevel, const char *vendorName,
                       uint8_t verifySignature, const char *moduleName);

/* 13: destroys a report of ClassifySite; null is accepted. */
ZEPH_EXPORT void ReleaseEngineResults(ZephEngineResults *results);

/* 14: classifies a page. The document is read on this thread and not kept.
 * classification, siteName, spooficity: as for ClassifyURL, siteName being written whenever a brand is named.
 * pageUrl: the URL to judge the page by; null: the document's own.
 * engineResults: out, may be null; if given, it receives a report that the caller releases, and the server is
 * not asked. A call that ends before a verdict (a scheme that isn't looked at, a failure) leaves it alone.
 * 0, 1 as above, -1 when the URL can't be decoded, kZephOutOfMemory, kZephTooCostly, or the status of
 * the collector that ended the call. */
ZEPH_EXPORT int32_t ClassifySite(ZephDocument *document, int32_t *classification, char16_t *siteName, const char16_t *pageUrl,
                     ZephEngineResults **engineResults, float *spooficity);

/* 15: sets *found to 1 when brandId is one of the configuration's brand identifiers, compared exactly, else 0.
 * 1 when an argument is null. */
ZEPH_EXPORT int32_t IsTRLMBrandID(const char16_t *brandId, uint8_t *found);

/* 16: makes the cabinet cabPath/cabName of count files; the entry "+" starts a new folder in it. cabPath null:
 * the root folder. 1 on success, else 0 and no cabinet. */
ZEPH_EXPORT int32_t BuildCabinet(const char *const *files, int32_t count, const char *cabName, const char *cabPath);

/* 17: packs, compresses and enciphers count files into outputFile; null and unreadable entries are left out.
 * 1 on success, else 0. */
ZEPH_EXPORT int32_t PackFiles(const char *const *files, int32_t count, const char *outputFile);

/* Why there is no configuration, or why a newer package isn't in force: the file and the reason of the failure that came
 * last, one line for people; nothing when all went well. Writes at most room - 1 bytes of it and a zero byte to text,
 * which may be null when room is 0. Gives its whole length in bytes, 0 for nothing. */
ZEPH_EXPORT size_t GetLoadFailure(char *text, size_t room);

/* 18: names the package to load (a file name without ".zip") and starts loading it in the background; only
 * the first call of a process starts the load thread. Null: ignored.
 *
 * Packages: NAME.zip in the shared data folder (/var/lib/zeph/VENDOR) goes before NAME.zip beside the library. Without
 * this call NAME is the library's own, "libDetectionEngine", and the first call that needs the package loads it. From then
 * on a file in the shared folder with a later time of last write replaces what is loaded; each call that classifies may
 * look for one, some hundred times a second at most. An older file, or none any more, replaces nothing: GetLoadFailure
 * tells of it. Only a file that nobody else can have written is believed: it and its folder belong to root, to the user
 * that the process runs as or to the owner of the library, and no other may write to them.
 * A package that "zeph package build" makes holds no path of its builder; after it is loaded, a newer one is looked for
 * in the same place as before. One that brings a path of its own moves the search there. */
ZEPH_EXPORT void SetConfigFileBaseName(const char *baseName);

/* Privacy levels say what a classification may send by itself: of a page that it holds for spoofing and asks the server
 * about, of one that the server wants reported, of a URL with a script attack, which is reported.
 *   0  the full URL
 *   1  scheme, host and path of the URL, no query; no page is reported
 *   2  nothing
 * CheckURL and ReportURL are the caller's own acts, and send at every level. */

/* 19: sets the privacy level 0, 1 or 2 and gives the one before; any other level is refused with -1. */
ZEPH_EXPORT int32_t SetPrivacy(uint32_t level);

/* 20: the privacy level. */
ZEPH_EXPORT int32_t GetPrivacy(void);

/* Options of a program that SetPreferences has no argument for; set at the start, for the whole process. */
enum {
  /* 1: makes the place in the user's settings where the engine remembers, for this user and across processes, the last
   * mail site that a page was recognised as, and the last warning. Until somebody has made it the engine remembers
   * nothing. Set it behind SetPreferences, whose names are part of the place. Fails when it can't be made. */
  kZephRemember = 1,
  /* 1 (at first): a page whose score changes between two visits isn't warned of, nor any page for a day thereafter, so
   * that one user isn't warned to and fro. 0: no warning is held back. A program that judges for many must set 0: else
   * one of them, who shows a page twice, silences the warnings of all. */
  kZephWarningMemory = 2,
  /* 0 (at first): the first four bytes of any response are the server's answer to a check, whatever its status, and any
   * response takes a report. 1: a response counts only with status 200, that to a check only with a body of exactly
   * four bytes. */
  kZephStrictServer = 3,
  /* For so many seconds a server that didn't answer in time isn't asked again, which is a failed exchange at no cost.
   * 0 (at first): each call asks, and may wait for 5 seconds. */
  kZephServerRest = 4
};

/* Sets an option. 0; 1 for an option or a value that there isn't, or when it can't be done. */
ZEPH_EXPORT int32_t SetEngineOption(int32_t option, int32_t value);

/* The function of an ordinal, to be cast to its type; null for 3, 5, 6, 0 and above 20. */
typedef void (*ZephFunction)(void);
ZEPH_EXPORT ZephFunction DetectionEngineOrdinal(uint32_t number);

#ifdef __cplusplus
} /* extern "C" */
#endif

#endif /* DETECTION_ENGINE_H */
