/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Classifies a page that a program in C has as bytes: a gateway, a mail filter.
 *
 *   cc -std=c11 -I. docs/examples/ClassifyPage.c -lDetectionDocuments -lDetectionEngine -o classify-page
 *   ./classify-page page.html http://www.example.test/login
 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "DetectionEngine/DetectionEngine.h"
#include "documents/DetectionDocuments.h"

/* The whole of a file; null when it can't be read. The caller frees it. */
static char *ReadFile(const char *path, size_t *length) {
  FILE *const file = fopen(path, "rb");
  char *bytes = NULL;
  long size = -1;
  if (file == NULL) return NULL;
  if (fseek(file, 0, SEEK_END) == 0) size = ftell(file);
  if (size >= 0 && fseek(file, 0, SEEK_SET) == 0) bytes = malloc((size_t)size + 1);
  if (bytes != NULL) *length = fread(bytes, 1, (size_t)size, file);
  fclose(file);
  return bytes;
}

/* A URL, which is ASCII, as the engine takes it. */
static char16_t *Widen(const char *text) {
  const size_t length = strlen(text);
  char16_t *const wide = calloc(length + 1, sizeof *wide);
  for (size_t i = 0; wide != NULL && i < length; ++i) wide[i] = (unsigned char)text[i];
  return wide;
}

int main(int argc, char **argv) {
  char16_t siteName[kZephNameRoom] = {0};
  int32_t classification = 0;
  int32_t result = 1;
  float spooficity = 0;
  size_t length = 0;
  if (argc != 3) {
    fprintf(stderr, "usage: classify-page PAGE.html URL\n");
    return 2;
  }
  char *const bytes = ReadFile(argv[1], &length);
  char16_t *const url = Widen(argv[2]);
  if (bytes == NULL || url == NULL) {
    fprintf(stderr, "classify-page: %s can't be read\n", argv[1]);
    free(bytes);
    free(url);
    return 2;
  }

  /* The package libDetectionEngine.zip beside the library; it is loaded once, in the background. */
  SetConfigFileBaseName("libDetectionEngine");
  ZephDocument *const document = CreateHtmlDocument(bytes, length, url, NULL);
  if (document != NULL) result = ClassifySite(document, &classification, siteName, NULL, NULL, &spooficity);
  ReleaseHtmlDocument(document);
  free(bytes);
  free(url);

  if (result != 0) {
    char why[1024];
    if (GetLoadFailure(why, sizeof why) != 0) fprintf(stderr, "classify-page: %s\n", why);
  }
  printf("result %d classification %d spooficity %.2f\n", (int)result, (int)classification, (double)spooficity);
  return result == 0 ? 0 : 1;
}
