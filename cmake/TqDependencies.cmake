# Every outside library tqkit uses, found once here so that the family folders only name targets.
find_package(PkgConfig REQUIRED)
find_package(Threads REQUIRED)
find_package(OpenSSL REQUIRED COMPONENTS Crypto)
pkg_check_modules(TQ_GLIB REQUIRED IMPORTED_TARGET glib-2.0)
pkg_check_modules(TQ_UUID REQUIRED IMPORTED_TARGET uuid)
# libplist: only the tests and benchmarks use it, as an independent reader to compare with.
pkg_check_modules(TQ_PLIST REQUIRED IMPORTED_TARGET libplist-2.0)
pkg_check_modules(TQ_MNL REQUIRED IMPORTED_TARGET libmnl)
pkg_check_modules(TQ_CAIRO REQUIRED IMPORTED_TARGET cairo)
pkg_check_modules(TQ_PANGO REQUIRED IMPORTED_TARGET pangocairo)
pkg_check_modules(TQ_PIXBUF REQUIRED IMPORTED_TARGET gdk-pixbuf-2.0)
find_package(pugixml REQUIRED)
