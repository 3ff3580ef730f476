// SPDX-License-Identifier: Apache-2.0
// Real signatures, made by a signing tool with authorities of the test's own.
#include <cstdlib>
#include <set>

#include "DetectionEngine/configuration/PackageSignature.h"
#include "DetectionEngine/platform/Signature.h"
#include "tests/configuration/Packages.h"
#include "tests/configuration/TestSigner.h"

namespace zeph {
namespace {

class SignatureTest : public FoldersTest {
 protected:
  SignatureTest() {
    const std::string source = Path("packed3.dat");
    Fill(source, "the content of a package");
    const char* files[] = {source.c_str()};
    EXPECT_TRUE(MakeCabinet(files, 1, "plain.zip", Path("").c_str()));
  }
  /// The cabinet, signed.
  std::string Signed(const TestSigner& signer, const std::string& options = "-h sha256") {
    signer.Sign(Path("plain.zip"), Path("signed.zip"), options);
    return Content(Path("signed.zip"));
  }
};

TEST_F(SignatureTest, AcceptedSignersAreToldByTheirExactName) {
  const TestAuthority authority(Path("ca"));
  const struct {
    const char* subject;
    const char* refusal;
  } cases[] = {
      {"/CN=Corvanta", ""},
      {"/O=Somebody/OU=Else/CN=Corvanta Release", ""},
      {"/O=Corvanta Package Signing", ""},  // without a common name the organisation is displayed
      {"/CN=corvanta", "\"corvanta\" isn't an accepted signer"},
      {"/CN=Corvanta ", "\"Corvanta \" isn't an accepted signer"},
      {"/CN=Corvanta Ltd/O=Corvanta", "\"Corvanta Ltd\" isn't an accepted signer"},
      {"/O=Corvanta/OU=Sales", "\"Sales\" isn't an accepted signer"},
      {"/C=US", "\"\" isn't an accepted signer"},
  };
  for (const auto& row : cases) {
    std::string refusal;
    const std::string package = Signed(TestSigner(authority, Path("signer"), row.subject, kCodeSigning));
    const bool isGood = VerifyPackageSignature(package, &refusal, authority.Certificate());
    EXPECT_EQ(refusal, row.refusal) << row.subject;
    EXPECT_EQ(isGood, refusal.empty()) << row.subject;
  }
}

TEST_F(SignatureTest, CertificatesMustLeadToATrustedAuthorityAndBeForCodeSigning) {
  const TestAuthority authority(Path("ca"));
  const TestAuthority other(Path("other"));
  constexpr char kNotFor[] = "the signer's certificate isn't for code signing";
  const struct {
    const char* name;
    const TestAuthority* issuer;
    const char* extensions;
    const char* days;
    const char* refusal;
  } cases[] = {
      {"good", &authority, kCodeSigning, "-days 10", ""},
      {"another authority", &other, kCodeSigning, "-days 10",
       "the signer's certificate isn't trusted: unable to get local issuer certificate"},
      {"no use named", &authority, "basicConstraints=CA:FALSE\n", "-days 10", kNotFor},
      {"a server's", &authority, "extendedKeyUsage=serverAuth\n", "-days 10", kNotFor},
      {"not for signatures", &authority, "keyUsage=keyEncipherment\nextendedKeyUsage=codeSigning\n", "-days 10",
       kNotFor},
      {"expired", &authority, kCodeSigning, "-startdate 20200101000000Z -enddate 20210101000000Z",
       "the signer's certificate isn't trusted: certificate has expired"},
      {"not yet valid", &authority, kCodeSigning, "-startdate 20900101000000Z -enddate 20910101000000Z",
       "the signer's certificate isn't trusted: certificate is not yet valid"},
  };
  for (const auto& row : cases) {
    const TestSigner signer(*row.issuer, Path("signer"), "/CN=Corvanta", row.extensions, row.days);
    EXPECT_EQ(VerifyCabinetSignature(Signed(signer), authority.Certificate()).refusal, row.refusal) << row.name;
  }
  const std::string package = Signed(TestSigner(authority, Path("signer"), "/CN=Corvanta", kCodeSigning));
  EXPECT_FALSE(VerifyCabinetSignature(package).IsGood()) << "the system doesn't know the authority";
  EXPECT_EQ(VerifyCabinetSignature(package, Path("missing.pem")).refusal, "the trusted authorities can't be read");
}

TEST_F(SignatureTest, ATimeStampKeepsAnExpiredSignatureGood) {
  const TestAuthority authority(Path("ca"));
  const TestAuthority other(Path("other"));
  constexpr char kStamping[] = "extendedKeyUsage=critical,timeStamping\n";
  const TestSigner stamper(authority, Path("stamper"), "/CN=Stamper", kStamping);
  const TestSigner stranger(other, Path("stranger"), "/CN=Stamper", kStamping);
  const TestSigner expired(authority, Path("signer"), "/CN=Corvanta", kCodeSigning,
                           "-startdate 20200101000000Z -enddate 20210101000000Z");
  const auto stampedBy = [](const TestSigner& by, const char* time) {
    return "-h sha256 -TSA-certs " + by.Certificate() + " -TSA-key " + by.Key() + " -TSA-time " + time;
  };
  const struct {
    const char* name;
    std::string options;
    bool isGood;
  } cases[] = {
      {"stamped while it was valid", stampedBy(stamper, "1600000000"), true},
      {"stamped later", stampedBy(stamper, "1700000000"), false},
      {"stamped by somebody unknown", stampedBy(stranger, "1600000000"), false},
      {"not stamped", "-h sha256", false},
  };
  for (const auto& row : cases) {
    EXPECT_EQ(VerifyCabinetSignature(Signed(expired, row.options), authority.Certificate()).IsGood(), row.isGood)
        << row.name;
  }
}

TEST_F(SignatureTest, OnlyTheCabinetThatWasSignedPasses) {
  const TestAuthority authority(Path("ca"));
  const TestSigner signer(authority, Path("signer"), "/CN=Corvanta", kCodeSigning);
  const std::string package = Signed(signer);
  const auto refusalOf = [&](const std::string& bytes) {
    return VerifyCabinetSignature(bytes, authority.Certificate()).refusal;
  };
  ASSERT_EQ(refusalOf(package), "");
  for (const char* digest : {"sha384", "sha512"}) {
    EXPECT_EQ(refusalOf(Signed(signer, std::string("-h ") + digest)), "") << digest;
  }
  EXPECT_EQ(refusalOf(Signed(signer, "-h sha1")), "the signature's digest is too weak");
  EXPECT_EQ(refusalOf(Content(Path("plain.zip"))), "the package isn't signed");
  EXPECT_EQ(refusalOf(""), "the package isn't signed");
  EXPECT_NE(refusalOf(package + '\0'), "");
  EXPECT_NE(refusalOf(package + package), "");
  for (std::size_t length = 0; length < package.size(); ++length) {
    ASSERT_NE(refusalOf(package.substr(0, length)), "") << length;
  }

  // A signature that is moved to another cabinet.
  Fill(Path("packed3.dat"), "the content of a hostile one");
  const std::string source = Path("packed3.dat");
  const char* files[] = {source.c_str()};
  ASSERT_TRUE(MakeCabinet(files, 1, "plain.zip", Path("").c_str()));
  const std::string other = Signed(signer);
  const std::size_t signatureSize =
      static_cast<std::uint8_t>(package[48]) + 256 * static_cast<std::uint8_t>(package[49]);
  ASSERT_EQ(other.substr(48, 4), package.substr(48, 4));
  EXPECT_EQ(refusalOf(other.substr(0, other.size() - signatureSize) + package.substr(package.size() - signatureSize)),
            "the package isn't the one that was signed");
}

TEST_F(SignatureTest, NoFlippedBitPassesButOneThatNobodyReads) {
  const TestAuthority authority(Path("ca"));
  const std::string package = Signed(TestSigner(authority, Path("signer"), "/CN=Corvanta", kCodeSigning));
  std::size_t signatureAt = 0;
  for (std::size_t i = 4; i-- > 0;) signatureAt = signatureAt << 8 | static_cast<std::uint8_t>(package[44 + i]);
  // A bit of the signature may be in what its format leaves open, such as the case of its issuer's name.
  const std::set<std::size_t> numberInSet = {34, 35};
  for (std::size_t at = 0; at < package.size(); ++at) {
    for (const int bit : {0, 5, 7}) {
      std::string flipped = package;
      flipped[at] = static_cast<char>(flipped[at] ^ 1 << bit);
      const CabinetSignature signature = VerifyCabinetSignature(flipped, authority.Certificate());
      EXPECT_EQ(signature.signer, signature.IsGood() ? "Corvanta" : "") << at;
      EXPECT_TRUE(!signature.IsGood() || at >= signatureAt || numberInSet.contains(at)) << at;
    }
  }
}

}  // namespace
}  // namespace zeph
