// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <string_view>

namespace zeph {

/// What the signature of a cabinet says.
struct CabinetSignature {
  std::string signer;   ///< the simple display name of the signer's certificate
  std::string refusal;  ///< why there is no good signature, for people; empty: there is one

  [[nodiscard]] bool IsGood() const noexcept { return refusal.empty(); }
};

/// Verifies the embedded Authenticode signature of a cabinet that lies in memory. It is good when
///  - the file is the cabinet, the signature and nothing else, and what the signature doesn't cover has the one value
///    that it can have (the cabinet's number in its set aside, which nobody reads);
///  - the signed digest, SHA-256 or longer, is the cabinet's, and the one signer's signature holds;
///  - the signer's certificate is for code signing and leads to an authority that the system trusts, with keys and
///    digests of at least 112 bits of strength; certificates aren't looked up in revocation lists;
///  - all certificates are valid now, or were when a time stamp (RFC 3161) says that the file was signed. The stamp's
///  own
///    chain must be valid now and trusted in the same way. A stamp that doesn't hold is as none.
/// The simple display name is the subject's common name, or failing that its unit, organisation or mail address.
/// authorities, if not empty, is a PEM file that takes the place of the system's trusted authorities (OpenSSL's default
/// store, which the environment can name for a process without raised privileges). Any thread; about a millisecond
/// and the time to digest the file.
[[nodiscard]] CabinetSignature VerifyCabinetSignature(std::string_view cabinet, const std::string& authorities = {});

}  // namespace zeph
