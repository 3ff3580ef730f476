// SPDX-License-Identifier: Apache-2.0
// Authorities and signers, made by openssl and osslsigncode as packagers use them.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

#include <gtest/gtest.h>

namespace zeph {

/// A certificate with its key, in files that begin with base.
class TestCertificate {
 public:
  [[nodiscard]] std::string Certificate() const { return base_ + ".pem"; }
  [[nodiscard]] std::string Key() const { return base_ + ".key"; }

 protected:
  /// issuer: options that name the issuer's certificate and key.
  TestCertificate(std::string base, const std::string& subject, const std::string& extensions,
                  const std::string& validity, const std::string& issuer)
      : base_(std::move(base)) {
    std::ofstream(base_ + ".db").flush();
    std::ofstream(base_ + ".ext") << extensions;
    std::ofstream(base_ + ".conf")
        << "[ca]\ndefault_ca=test\n[test]\ndatabase=" << base_
        << ".db\nnew_certs_dir=" << base_.substr(0, base_.rfind('/'))
        << "\nrand_serial=yes\ndefault_md=sha256\nunique_subject=no\npreserve=yes\npolicy=any\n"
           "[any]\ncommonName=optional\ncountryName=optional\norganizationName=optional\n"
           "organizationalUnitName=optional\n";
    Run("openssl req -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -subj '" + subject + "' -keyout " + Key() +
        " -out " + base_ + ".csr");
    Run("openssl ca -batch -notext -config " + base_ + ".conf -in " + base_ + ".csr -extfile " + base_ + ".ext " +
        issuer + " " + validity + " -out " + Certificate());
  }

  /// Runs a command of the shell, silent unless it fails.
  void Run(const std::string& command) const {
    const std::string output = base_ + ".log";
    EXPECT_EQ(std::system((command + " > " + output + " 2>&1").c_str()), 0) << command << '\n'
                                                                            << std::ifstream(output).rdbuf();
  }

 private:
  std::string base_;
};

/// A self-signed authority since 2019.
class TestAuthority : public TestCertificate {
 public:
  explicit TestAuthority(const std::string& base)
      : TestCertificate(base, "/CN=Authority", "basicConstraints=critical,CA:TRUE\nkeyUsage=critical,keyCertSign\n",
                        "-startdate 20190101000000Z -days 10", "-selfsign -keyfile " + base + ".key") {}
};

/// A certificate of an authority, to sign cabinets or time stamps with.
class TestSigner : public TestCertificate {
 public:
  TestSigner(const TestAuthority& authority, const std::string& base, const std::string& subject,
             const std::string& extensions, const std::string& validity = "-days 10")
      : TestCertificate(base, subject, extensions, validity,
                        "-cert " + authority.Certificate() + " -keyfile " + authority.Key()) {}

  void Sign(const std::string& cabinet, const std::string& output, const std::string& options = "-h sha256") const {
    std::remove(output.c_str());
    Run("osslsigncode sign -certs " + Certificate() + " -key " + Key() + " " + options + " -in " + cabinet + " -out " +
        output);
  }
};

inline constexpr char kCodeSigning[] =
    "basicConstraints=CA:FALSE\nkeyUsage=digitalSignature\nextendedKeyUsage=codeSigning\n";

}  // namespace zeph
