#ifndef INCLUDE_INSTALLERCONSTANTS_H_
#define INCLUDE_INSTALLERCONSTANTS_H_

#include <string>

/// The release year, a part of both strings below.
#define PRODUCT_YEAR "2017"

// Each source file has its own copy of both strings, made before main(). Do not use the strings in
// the initialization of another static object.

/// The application identifier of the preferences domain. The suffix ".plist" belongs to the
/// identifier on purpose, and no code strips the suffix.
static const std::string PLIST_SECTION_KEY =
    std::string("com.veltrane.orlisk.") + PRODUCT_YEAR + ".WebResource.plist";

/// The install root: the directory under which web resources are installed. The path ends in "/",
/// because callers append names by concatenation.
static const std::string INSTALL_PATH_ROOT =
    std::string("/Library/Application Support/Veltrane/Orlisk/") + PRODUCT_YEAR + "/WebResources/";

/// The files in the bundle's Resources directory.
constexpr char kPackageFileName[] = "OrloWebResources.zip";
constexpr char kMetadataFileName[] = "metadata.txt";

/// The name of an installed directory at the end of a run.
constexpr char kFinalName[] = "Resource0";

#endif  // INCLUDE_INSTALLERCONSTANTS_H_
