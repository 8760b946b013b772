# fmt as headers alone, for a compiler whose C++ library is not the one that the installed fmt was built with.
if(NOT TARGET fmt::fmt)
    add_library(fmt::fmt INTERFACE IMPORTED)
    target_compile_definitions(fmt::fmt INTERFACE FMT_HEADER_ONLY)
endif()
