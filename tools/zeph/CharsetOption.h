// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include <CLI/CLI.hpp>

#include "documents/html/Decoder.h"

namespace zeph {

/// Adds --charset to a command that reads pages. A label that names no encoding is refused.
inline void AddCharsetOption(CLI::App& command, std::string& charset) {
  command
      .add_option("--charset", charset,
                  "The encoding of pages, as a server would name it; a page's byte order mark counts for more")
      ->check([](const std::string& label) {
        return html::IsEncoding(label) ? std::string() : label + ": no encoding (try utf-8, windows-1251, shift_jis)";
      });
}

}  // namespace zeph
