// Path services over a FileManager: nested directories, free names by numbering, the
// hidden-extension flag, and listing by path prefix.
//
// Every function takes the receiving file manager first (normally FileManager::defaultManager()).
// The directory and naming functions use the receiver's operations and existence tests;
// hideFileExtension and filesStartingWithPath always work through FileManager::defaultManager(),
// whatever the receiver. None locks anything: a free name is tested, not
// reserved, and another process may take it before the caller uses it. Any thread.
//
// Numbering: a taken name "Base.ext" is tried as "Base 02.ext", "Base 03.ext", ... "Base 99.ext",
// "Base 100.ext" and on without limit ("%@ %02d", ASCII digits whatever the locale). The number goes
// before the last extension only ("backup.tar.gz" -> "backup.tar 02.gz"), a name without extension
// just gets it appended ("Notes" -> "Notes 02"), and a name that already ends in a number is not
// parsed ("Report 02.txt" -> "Report 02 02.txt").
#pragma once

#include "tq/platform/base/string.h"
#include "tq/platform/base/value.h"
#include "tq/platform/fs/file_manager.h"

namespace tq {

// Creates the directory at path together with every missing parent, top-down, each with the same
// attributes (may be nil). A level where something already exists (of any kind) is passed over; a
// file in the way thus makes the next level fail. Stops at the first level that cannot be created
// and answers false (levels made before stay); true when the loop ends, also for an empty path.
bool createDirectoriesAtPath(FileManager& manager, const String& path, const Dictionary& attributes);

// The path itself when nothing exists there, else the first numbered variant in the same folder
// where nothing exists.
String uniqueNameForFile(FileManager& manager, const String& path);

// Free names for a batch of files bound for one folder: one name per input, in input order. A name
// is free when nothing exists at folder/name and no earlier result equals it exactly, so two inputs
// "a.txt" give "a.txt" and "a 02.txt" even in an empty folder. Results are bare names. Non-string
// elements of names are treated as empty names.
//
// Cost is linear in the batch: numbers already rejected for a base and extension are not tried
// again within the call (the folder is assumed not to change meanwhile), and a candidate already in
// the result is rejected without asking the file system.
Array uniqueNamesForFileNames(FileManager& manager, const Array& names, const String& folder);

// Sets the item's NSFileExtensionHidden flag (see FileManager) by reading its attributes (without
// following a symbolic link), setting the flag and writing the whole dictionary back, all through
// FileManager::defaultManager() (the receiver is not asked). A failed write and a missing item are
// not reported.
void hideFileExtension(FileManager& manager, bool hide, const String& path);

// The full paths in the folder of prefix (prefix without its last component) that begin with prefix,
// compared case-sensitively code unit by code unit, in listing order. "/tmp/Report" finds
// "/tmp/Report.txt" and "/tmp/Reports", not "/tmp/report.txt"; sub-folders are not entered; a prefix
// ending in "/" finds nothing. An unreadable folder gives an empty Array. The folder is listed through
// FileManager::defaultManager() (the receiver is not asked); names that are not UTF-8 are listed
// too, as FileManager::directoryContentsAtPath lists them.
Array filesStartingWithPath(FileManager& manager, const String& prefix);

}  // namespace tq
