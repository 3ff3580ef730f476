/* SPDX-License-Identifier: Apache-2.0 */
/*
 * What an image matching library offers to the engine. It is optional: the engine looks for libImageMatching.so in its
 * own folder when it is loaded, and does without it when there is none or a function is missing. Only installations
 * that run as a server use it.
 *
 * The library exports the four functions below as C functions. Wide text is UTF-16, zero-terminated. Results are 0 for
 * success; below 0 is a failure. Calls may come from several threads at once, and the settings that one evaluation
 * passes are meant for the IsImageMatch that follows on the same thread.
 */
#ifndef IMAGE_MATCHING_H
#define IMAGE_MATCHING_H

#include <stddef.h>
#include <stdint.h>
#ifndef __cplusplus
#include <uchar.h>
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* Room that the engine gives for each output of IsImageMatch. */
enum { kImageDescriptionRoom = 5000, kImageNameRoom = 1000, kImageReservedRoom = 10000 };

/* The page's distinct image URLs in ascending order; read only, lent for the call. */
typedef struct ZephImageList {
  const char16_t *const *urls;
  size_t count;
} ZephImageList;

/* The four values of a rule, before each evaluation. Their meaning is the library's own. */
typedef int32_t ZephLoadSettings(int32_t first, int32_t second, double third, uint32_t flag);

/* Path of the template list, relative to the process's folder. Called until it has succeeded once. */
typedef int32_t ZephLoadTemplateProperties(const char16_t *path);

/* Compares the images with the templates.
 * description: out, kImageDescriptionRoom characters. text: in, always empty. match: out, not 0 when one matches.
 * reserved, reservedBytes (kImageReservedRoom bytes): out, not read. name: out, what matched, kImageNameRoom
 * characters. All outputs are cleared before the call. */
typedef int32_t ZephIsImageMatch(const ZephImageList *images, char16_t *description, const char16_t *text,
                                 uint32_t *match, int32_t *reserved, char16_t *name, uint8_t *reservedBytes);

/* Once, before the engine lets go of the library. */
typedef int32_t ZephShutdownGDIplus(void);

#ifdef IMAGE_MATCHING_IMPLEMENTATION
ZephLoadSettings LoadSettings;
ZephLoadTemplateProperties LoadTemplateProperties;
ZephIsImageMatch IsImageMatch;
ZephShutdownGDIplus ShutdownGDIplus;
#endif

#ifdef __cplusplus
}
#endif

#endif /* IMAGE_MATCHING_H */
