/* SPDX-License-Identifier: Apache-2.0 */
/* An image matching library that lacks its last two functions. */
#include "DetectionEngine/ImageMatching.h"

__attribute__((visibility("default"))) ZephLoadSettings LoadSettings;
__attribute__((visibility("default"))) ZephShutdownGDIplus ShutdownGDIplus;

int32_t LoadSettings(int32_t first, int32_t second, double third, uint32_t flag) {
  (void)first;
  (void)second;
  (void)third;
  (void)flag;
  return 0;
}

int32_t ShutdownGDIplus(void) { return 0; }
