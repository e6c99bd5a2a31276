// FileManager: the file-system operations the library's path helpers rest on, over POSIX.
//
// Paths are Strings with "/" as the separator. Linux names are bytes, not text, so the conversion
// loses nothing: a name's bytes become a String by UTF-8, except that each byte that is not part of
// a well-formed UTF-8 sequence becomes the lone low surrogate U+DC80 + (byte - 0x80); a String becomes
// the system's bytes by UTF-8, except that each lone U+DC80-U+DCFF becomes that byte again. A valid
// UTF-8 name is unchanged either way, a name with stray bytes (Latin-1 "caf\xE9", "\xFF\xFE") lists
// as a String that opens that very file, and distinct names stay distinct. Such a String shows U+FFFD
// where it is printed as UTF-8. (A String made elsewhere whose lone surrogates spell valid UTF-8,
// such as U+DCC3 U+DCA9, names the same file as that text, here "\u00E9".)
// fileSystemRepresentation() and stringWithFileSystemRepresentation() do the two conversions for
// code that calls the system itself.
// Every operation reports missing data as an empty result (false, a nil Dictionary or Array) and
// never throws. The methods are virtual so that tests and hosts can substitute or count them.
//
// Attributes are a Dictionary keyed by the constants below:
//   NSFileType                 string, one of the NSFileType* values (read only)
//   NSFileSize                 integer, bytes (read only)
//   NSFileModificationDate     Date (read and write)
//   NSFilePosixPermissions     integer, the permission bits 07777 (read and write)
//   NSFileOwnerAccountID       integer uid (read and write; changing it needs the privilege)
//   NSFileGroupOwnerAccountID  integer gid (read and write)
//   NSFileReferenceCount       integer, hard links (read only)
//   NSFileSystemNumber, NSFileSystemFileNumber  integers, device and inode (read only)
//   NSFileExtensionHidden      boolean (read and write): whether a file browser should show the
//                              name without its extension. Linux has no such flag, so it is kept
//                              as the extended attribute "user.tq.extension-hidden" (value "1")
//                              of the item itself; false removes the attribute. Where the file
//                              system refuses user extended attributes the flag reads as false
//                              and writing it fails.
// Keys a call does not understand are ignored.
//
// Threads: defaultManager() is shared and stateless; it may be used from any thread.
#pragma once

#include <string>
#include <string_view>

#include "tq/platform/base/string.h"
#include "tq/platform/base/value.h"

namespace tq {

inline const String NSFileType = u"NSFileType";
inline const String NSFileSize = u"NSFileSize";
inline const String NSFileModificationDate = u"NSFileModificationDate";
inline const String NSFilePosixPermissions = u"NSFilePosixPermissions";
inline const String NSFileOwnerAccountID = u"NSFileOwnerAccountID";
inline const String NSFileGroupOwnerAccountID = u"NSFileGroupOwnerAccountID";
inline const String NSFileReferenceCount = u"NSFileReferenceCount";
inline const String NSFileSystemNumber = u"NSFileSystemNumber";
inline const String NSFileSystemFileNumber = u"NSFileSystemFileNumber";
inline const String NSFileExtensionHidden = u"NSFileExtensionHidden";

inline const String NSFileTypeDirectory = u"NSFileTypeDirectory";
inline const String NSFileTypeRegular = u"NSFileTypeRegular";
inline const String NSFileTypeSymbolicLink = u"NSFileTypeSymbolicLink";
inline const String NSFileTypeSocket = u"NSFileTypeSocket";
inline const String NSFileTypeCharacterSpecial = u"NSFileTypeCharacterSpecial";
inline const String NSFileTypeBlockSpecial = u"NSFileTypeBlockSpecial";
inline const String NSFileTypeUnknown = u"NSFileTypeUnknown";

// The extended attribute that holds NSFileExtensionHidden.
inline constexpr const char* kExtensionHiddenAttribute = "user.tq.extension-hidden";

class FileManager {
 public:
  virtual ~FileManager();

  // The shared POSIX file manager.
  static FileManager& defaultManager();

  // The bytes the system calls take for a path (see above). nil gives "".
  static std::string fileSystemRepresentation(const String& path);
  // The String for a name or path as the system gives it (see above); never nil.
  static String stringWithFileSystemRepresentation(std::string_view bytes);

  // True when something (of any kind) is at the path; a symbolic link counts by its target, so a
  // dangling link answers false.
  virtual bool fileExistsAtPath(const String& path);
  // The same; *isDirectory (when not null) tells whether it is a directory (following links).
  virtual bool fileExistsAtPath(const String& path, bool* isDirectory);

  // Creates one directory whose parent exists, then applies the attributes (a nil Dictionary
  // applies none: the mode is 0777 less the umask). NSFilePosixPermissions is applied exactly,
  // regardless of the umask. True when the directory was created; the attributes' outcome is not
  // part of the answer.
  virtual bool createDirectoryAtPath(const String& path, const Dictionary& attributes);

  // The item's attributes (keys above); with traverseLink false a symbolic link describes itself.
  // nil when nothing is at the path.
  virtual Dictionary fileAttributesAtPath(const String& path, bool traverseLink);
  // fileAttributesAtPath(path, false).
  Dictionary attributesOfItemAtPath(const String& path) { return fileAttributesAtPath(path, false); }

  // Applies the writable attributes in the dictionary to the item (a symbolic link itself where
  // the system allows; its permissions cannot change). Values equal to the current ones are not
  // written again. True when every requested change succeeded.
  virtual bool changeFileAttributes(const Dictionary& attributes, const String& path);

  // The names (not paths) of the folder's entries, "." and ".." left out, in the order the system
  // lists them (no sorting). nil when the folder cannot be read. Every entry is listed, those whose
  // names are not valid UTF-8 included (as above).
  virtual Array directoryContentsAtPath(const String& path);
};

}  // namespace tq
