#ifndef INCLUDE_INSTALLERCONSTANTS_H_
#define INCLUDE_INSTALLERCONSTANTS_H_

#include <string>

/// The release year: part of both strings below.
#define PRODUCT_YEAR "2017"

// Each source unit that includes this header builds its own copy of both strings before main().

/// The application identifier of the preferences domain. It ends in ".plist" on purpose: the suffix
/// is part of the identifier and nothing strips it.
static const std::string PLIST_SECTION_KEY =
    std::string("com.veltrane.orlisk.") + PRODUCT_YEAR + ".WebResource.plist";

/// The directory under which web resources are installed. It ends in "/": names are joined to it by
/// plain concatenation.
static const std::string INSTALL_PATH_ROOT =
    std::string("/Library/Application Support/Veltrane/Orlisk/") + PRODUCT_YEAR + "/WebResources/";

/// What the bundle's Resources directory holds.
constexpr char kPackageFileName[] = "OrloWebResources.zip";
constexpr char kMetadataFileName[] = "metadata.txt";

/// The bare name an installed directory ends up with.
constexpr char kFinalName[] = "Resource0";

#endif  // INCLUDE_INSTALLERCONSTANTS_H_
