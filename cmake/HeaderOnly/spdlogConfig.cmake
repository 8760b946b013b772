# spdlog as headers alone, for a compiler whose C++ library is not the one that the installed spdlog was built with.
find_package(fmt REQUIRED)
if(NOT TARGET spdlog::spdlog)
    add_library(spdlog::spdlog INTERFACE IMPORTED)
    target_compile_definitions(spdlog::spdlog INTERFACE SPDLOG_FMT_EXTERNAL)
    target_link_libraries(spdlog::spdlog INTERFACE fmt::fmt)
endif()
