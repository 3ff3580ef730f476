/* SPDX-License-Identifier: Apache-2.0 */
/*
 * A small image matching library, to start one of your own from. It knows images by their addresses alone.
 *
 * The template list is a text file: in each line a part of an image's address, one blank, and the name of the brand.
 * The settings: how many images must match, how many are looked at, their share among those, and whether letter case
 * is looked past.
 *
 *   cc -std=c11 -shared -fPIC -fvisibility=hidden -I <source folder> -o libImageMatching.so ExampleImageMatching.c
 */
#define IMAGE_MATCHING_IMPLEMENTATION
#include "DetectionEngine/ImageMatching.h"

#include <pthread.h>
#include <stdio.h>
#include <string.h>

#define EXPORT __attribute__((visibility("default")))

enum { kTemplateLimit = 256, kLineRoom = 512, kPathRoom = 4096, kFailed = -1 };

struct Template {
  char part[kLineRoom];
  char name[kLineRoom];
};

static pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER; /* templates are loaded once, by any thread */
static struct Template templates[kTemplateLimit];
static size_t templateCount;

/* One evaluation's settings reach the comparison that follows on the same thread. */
static _Thread_local struct {
  int32_t matchesWanted;
  int32_t imagesLookedAt;
  double shareWanted;
  uint32_t anyCase;
} settings;

static int Folded(int c) { return settings.anyCase && c >= 'A' && c <= 'Z' ? c + 32 : c; }

/* 1 when the address holds the part; templates are ASCII, and so are addresses. */
static int Holds(const char16_t *address, const char *part) {
  for (; *address != 0; ++address) {
    size_t i = 0;
    while (part[i] != 0 && Folded(address[i]) == Folded((unsigned char)part[i])) ++i;
    if (part[i] == 0) return 1;
  }
  return 0;
}

static void CopyText(char16_t *out, size_t room, const char *text) {
  size_t i = 0;
  for (; i + 1 < room && text[i] != 0; ++i) out[i] = (unsigned char)text[i];
  out[i] = 0;
}

EXPORT int32_t LoadSettings(int32_t first, int32_t second, double third, uint32_t flag) {
  if (first < 1 || second < 1) return kFailed;
  settings.matchesWanted = first;
  settings.imagesLookedAt = second;
  settings.shareWanted = third;
  settings.anyCase = flag;
  return 0;
}

EXPORT int32_t LoadTemplateProperties(const char16_t *path) {
  char narrow[kPathRoom];
  size_t length = 0;
  for (; path[length] != 0; ++length) {
    if (length + 1 >= kPathRoom || path[length] > 0x7F) return kFailed;
    narrow[length] = (char)path[length];
  }
  narrow[length] = 0;
  FILE *file = fopen(narrow, "r");
  if (file == NULL) return kFailed;
  pthread_mutex_lock(&lock);
  templateCount = 0;
  while (templateCount < kTemplateLimit &&
         fscanf(file, "%511s %511[^\n]", templates[templateCount].part, templates[templateCount].name) == 2) {
    ++templateCount;
  }
  pthread_mutex_unlock(&lock);
  fclose(file);
  return 0;
}

EXPORT int32_t IsImageMatch(const ZephImageList *images, char16_t *description, const char16_t *text, uint32_t *match,
                            int32_t *reserved, char16_t *name, uint8_t *reservedBytes) {
  (void)text;
  (void)reserved;
  (void)reservedBytes;
  const size_t limit = (size_t)settings.imagesLookedAt;
  const size_t lookedAt = images->count < limit ? images->count : limit;
  int32_t matches = 0;
  pthread_mutex_lock(&lock);
  for (size_t i = 0; i < lookedAt; ++i) {
    for (size_t t = 0; t < templateCount; ++t) {
      if (!Holds(images->urls[i], templates[t].part)) continue;
      if (matches == 0) CopyText(name, kImageNameRoom, templates[t].name);
      ++matches;
      break;
    }
  }
  pthread_mutex_unlock(&lock);
  char sentence[128];
  snprintf(sentence, sizeof sentence, "%d of %zu images match", (int)matches, lookedAt);
  CopyText(description, kImageDescriptionRoom, sentence);
  *match = matches >= settings.matchesWanted && (double)matches >= settings.shareWanted * (double)lookedAt;
  return 0;
}

EXPORT int32_t ShutdownGDIplus(void) {
  templateCount = 0;
  return 0;
}
