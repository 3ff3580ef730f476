// SPDX-License-Identifier: Apache-2.0
#include "DetectionEngine/page/BrandCounts.h"

#include <string>
#include <utility>
#include <vector>

#include "DetectionEngine/configuration/Configuration.h"
#include "DetectionEngine/configuration/HostMatching.h"

namespace zeph {

namespace {

/// A popular site counts as no brand's, whatever brand claims it.
void SortHosts(const Tally& hosts, const Configuration& configuration, Tally& brands, Tally& others) {
  std::vector<Tally::Entry> ofBrands;
  std::vector<Tally::Entry> ofOthers;
  for (const auto& [host, count] : hosts) {
    const NetLocationMatch brand = FindInNetLocations(host, configuration.PopularSites)
                                       ? NetLocationMatch()
                                       : FindInNetLocations(host, configuration.BrandDomains);
    if (brand) {
      ofBrands.emplace_back(configuration.BrandDomains.Entries[static_cast<std::size_t>(brand.index)].TrustedDomainName,
                            count);
    } else {
      ofOthers.emplace_back(host, count);
    }
  }
  brands = Tally(std::move(ofBrands));
  others = Tally(std::move(ofOthers));
}

/// Sums up a brand tally; dominant receives the key of the highest count, the first of equal ones.
std::int32_t CountBrands(const Tally& brands, std::u16string& dominant) {
  std::int32_t total = 0;
  std::int32_t most = 0;
  for (const auto& [brand, count] : brands) {
    total += count;
    if (count <= most) continue;
    most = count;
    dominant = brand;
  }
  return total;
}

/// total points to the member that shows the sum.
template <class Data>
std::int32_t BrandCount(Data& data, const Configuration* configuration, std::int32_t Data::*total,
                        std::u16string& dominant) {
  if (configuration == nullptr) return 1;
  if (!data.brandCountsReady) {
    SortHosts(data.hostTally, *configuration, data.brandTally, data.otherHostTally);
    data.*total = CountBrands(data.brandTally, dominant);
    data.brandCountsReady = true;
  }
  return data.*total;
}

}  // namespace

std::int32_t LinkBrandCount(PageData& pageData) {
  return BrandCount(pageData.links, pageData.configuration, &LinkData::brandLinkCount, pageData.links.dominantBrand);
}

std::int32_t ImageBrandCount(PageData& pageData) {
  return BrandCount(pageData.images, pageData.configuration, &ImageData::brandImageCount,
                    pageData.images.dominantBrand);
}

std::int32_t ScriptBrandCount(PageData& pageData) {
  std::u16string dominant;  // scripts show none
  return BrandCount(pageData.scripts, pageData.configuration, &ScriptData::brandScriptCount, dominant);
}

}  // namespace zeph
