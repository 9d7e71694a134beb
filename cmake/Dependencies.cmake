# What the library's public headers and its linking need. Used by the build and by the installed package.
find_package(PkgConfig REQUIRED)
pkg_check_modules(cfitsio REQUIRED IMPORTED_TARGET cfitsio)
pkg_check_modules(log4cplus REQUIRED IMPORTED_TARGET log4cplus)
find_package(Microsoft.GSL CONFIG REQUIRED)
