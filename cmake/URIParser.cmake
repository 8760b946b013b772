# The parser of URLs: uriparser_target is what to link.
# Not every package of uriparser has a description for CMake.
find_package(uriparser CONFIG QUIET)
if(TARGET uriparser::uriparser)
    set(uriparser_target uriparser::uriparser)
else()
    find_package(PkgConfig REQUIRED)
    pkg_check_modules(uriparser REQUIRED IMPORTED_TARGET liburiparser)
    set(uriparser_target PkgConfig::uriparser)
endif()
