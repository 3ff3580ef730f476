// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>

namespace zeph {

/// A decoded URL. RawUrl stands first, so that a record can serve wherever a URL is asked for.
struct UrlRecord {
  std::u16string RawUrl;         ///< as given, or rebuilt after the host was turned into its ASCII form
  std::u16string Scheme;
  std::u16string HostName;       ///< ASCII form where one applies, without a trailing dot, case unchanged
  std::u16string NormalizedUrl;  ///< scheme, host without "www.", unusual port, path; no query, no fragment
  std::u16string DomainTail;     ///< last two labels; empty for an address, a single label, a host with a slash
  std::u16string MainDomain;     ///< the label taken as the site's own name; empty in the same cases
  std::u16string UserName;
  std::u16string Password;
  std::u16string UrlPath;        ///< decoded, each "%" of the decoded text written as "%25"
  std::u16string Directory;      ///< UrlPath up to and including its last slash
  std::u16string FileName;       ///< UrlPath behind its last slash
  std::u16string FileExtension;  ///< FileName behind its last dot, lower case
  std::u16string ExtraInfo;      ///< query and fragment, with the question mark
  bool HostIsBracketed = false;
  bool HostIsIp = false;          ///< HostIsHexForm or HostIsDottedForm
  bool HostHasSlash = false;
  bool HostIsSingleLabel = false;
  bool HostIsHexForm = false;     ///< a label longer than one character begins with 0x
  bool HostIsDottedForm = false;  ///< digits and dots only; an empty host counts
  std::int32_t Port = 0;          ///< the scheme's default when the URL names none
  bool PortImplied = false;       ///< the URL names no port
  bool IsRedirector = false;
  std::u16string RedirectTarget;

  friend bool operator==(const UrlRecord&, const UrlRecord&) = default;
};

}  // namespace zeph
