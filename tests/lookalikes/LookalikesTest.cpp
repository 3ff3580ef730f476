// SPDX-License-Identifier: Apache-2.0
#include "tools/lookalikes/Lookalikes.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tools/lookalikes/Skeleton.h"

namespace zeph {
namespace {

Lookalikes Brands() {
  Lookalikes brands;
  brands.Add("paypal.com", {"paypal.com", "paypal.co.uk"}, {"paypal", "paypa1"});
  brands.Add("microsoft.com", {"microsoft.com", "live.com"}, {});
  brands.Add("dhl.com", {"dhl.com"}, {});
  brands.Add("commbank.com.au", {"commbank.com.au"}, {});
  return brands;
}

struct HostCase {
  const char* host;
  const char* told;  ///< brand:likeness:part of each, blank between
};

TEST(Lookalikes, TellsBrandAndLikeness) {
  constexpr HostCase kCases[] = {
      {"paypal.com", ""},
      {"www.paypal.co.uk", ""},
      {"paypal.evil.example", "paypal.com:tag:paypal"},
      {"mypaypalhelp.example", "paypal.com:tag:mypaypalhelp"},
      {"paypal-login.example", "paypal.com:hyphenation:paypal"},
      {"pay-pal.example", "paypal.com:hyphenation:pay-pal"},
      {"paypal.com.evil.example", "paypal.com:subdomain:paypal.com"},
      {"paypal-com.evil.example", "paypal.com:hyphenation:paypal-com"},
      {"www.paypal.co.uk.evil.example", "paypal.com:subdomain:paypal.co.uk"},
      {"paypa1.example", "paypal.com:homoglyph:paypa1"},
      {"securepaypai.example", "paypal.com:homoglyph:securepaypai"},
      {"rnicrosoft.example", "microsoft.com:homoglyph:rnicrosoft"},
      {"oaypal.example", "paypal.com:keyboard slip:oaypal"},
      {"paypall.example", "paypal.com:spelling distance:paypall"},
      {"payal.example", "paypal.com:spelling distance:payal"},
      {"papyal.example", "paypal.com:spelling distance:papyal"},
      {"micresoft-help.example", "microsoft.com:spelling distance:micresoft"},
      {"xn--pypal-4ve.example", "paypal.com:punycode:xn--pypal-4ve"},
      {"xn--.example", ""},
      {"commbank-au.example", "commbank.com.au:hyphenation:commbank"},
      {"dhl.com.parcel.example", "dhl.com:subdomain:dhl.com"},
      {"headhless.example", ""},
      {"payroll.example", ""},
      {"recommend.example", ""},
      {"", ""},
      {"...", ""},
  };
  const Lookalikes brands = Brands();
  for (const HostCase& one : kCases) {
    std::string told;
    for (const Resemblance& likeness : brands.Of(one.host)) {
      told += (told.empty() ? "" : " ") + likeness.brand + ":" + std::string(LikenessName(likeness.likeness)) + ":" +
              likeness.part;
    }
    EXPECT_EQ(told, one.told) << one.host;
  }
}

TEST(Lookalikes, FindsTheHostOfWhatItIsGiven) {
  constexpr std::pair<const char*, const char*> kCases[] = {
      {"https://user:x@WWW.PayPal.com:443/a@b?c", "www.paypal.com"},
      {"*.login.example", "login.example"},
      {"host.example.", "host.example"},
      {"p\xC3\xA1ypal.example", "xn--pypal-xqa.example"},
      {"", ""},
  };
  for (const auto& [text, host] : kCases) EXPECT_EQ(HostOf(text), host) << text;
}

}  // namespace
}  // namespace zeph
