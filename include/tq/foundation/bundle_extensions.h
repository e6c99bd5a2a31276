// Resource listing of a bundle for one localization.
#pragma once

#include <set>

#include "tq/platform/base/string.h"
#include "tq/platform/bundle/bundle.h"

namespace tq {

// The resource names that one localization of the bundle sees, each relative to the bundle's
// resource directory, as a set of unique strings (std::set, so iteration is in code-unit order):
//   - every entry at the top of the resource directory whose extension is not exactly "lproj"
//     (case-sensitive: a "Fr.LPROJ" folder is listed as an ordinary entry), hidden entries included;
//   - every entry of LOCALIZATION.lproj, as "LOCALIZATION.lproj/NAME".
// One level only: folders inside (nib bundles, sub-folders) are single entries. Other
// localizations' folders are left out. A missing resource directory or localization folder
// contributes nothing; a nil or empty localization names no folder, so only the top entries come
// back. The listings go through FileManager::defaultManager(), which lists names that are not
// UTF-8 as well (see FileManager::directoryContentsAtPath). Any thread.
std::set<String> allResourcesForLocalization(const Bundle& bundle, const String& localization);

}  // namespace tq
