# The database engine, ZAV_ENGINE: zav_engine_target is what to link, and with it <sqlite3.h> is the engine's own.
# The others name the packages that whoever links the static library needs.
set(ZAV_ENGINE sqlite CACHE STRING
    "Database engine: sqlite, sqlcipher, which can encrypt, or amalgamation, compiled in from ZAV_ENGINE_SOURCE")
set_property(CACHE ZAV_ENGINE PROPERTY STRINGS sqlite sqlcipher amalgamation)
option(ZAV_EXPORT_ENGINE "Offer the compiled in engine's functions and its header to the library's users" OFF)
if(ZAV_EXPORT_ENGINE AND NOT ZAV_ENGINE STREQUAL "amalgamation")
    message(FATAL_ERROR "ZAV_EXPORT_ENGINE is about an engine that is compiled in: it needs ZAV_ENGINE=amalgamation")
endif()
if(ZAV_ENGINE STREQUAL "sqlite")
    find_package(SQLite3 3.15 REQUIRED)
    set(zav_engine_target SQLite::SQLite3)
    set(zav_engine_for_pkg_config "sqlite3 >= 3.15, ")
    set(zav_engine_for_debian "libsqlite3-dev (>= 3.15), ")
elseif(ZAV_ENGINE STREQUAL "sqlcipher")
    find_package(PkgConfig REQUIRED)
    pkg_check_modules(sqlcipher REQUIRED IMPORTED_TARGET sqlcipher>=3.4)
    set(zav_engine_target PkgConfig::sqlcipher)
    set(zav_engine_for_pkg_config "sqlcipher >= 3.4, ")
    set(zav_engine_for_debian "libsqlcipher-dev (>= 3.4), ")
    # Its header declares the functions for keys to those who say that the engine has them.
    set_property(TARGET PkgConfig::sqlcipher APPEND PROPERTY INTERFACE_COMPILE_DEFINITIONS SQLITE_HAS_CODEC)
elseif(ZAV_ENGINE STREQUAL "amalgamation")
    set(ZAV_ENGINE_SOURCE ${PROJECT_SOURCE_DIR}/build/engine CACHE PATH "Folder of sqlite3.c and sqlite3.h")
    if(NOT EXISTS ${ZAV_ENGINE_SOURCE}/sqlite3.c OR NOT EXISTS ${ZAV_ENGINE_SOURCE}/sqlite3.h)
        message(FATAL_ERROR "${ZAV_ENGINE_SOURCE} lacks sqlite3.c or sqlite3.h; scripts/fetch-engine.sh fetches them")
    endif()
    if(BUILD_SHARED_LIBS AND ZAV_BUILD_TESTS AND NOT ZAV_EXPORT_ENGINE)
        message(FATAL_ERROR "The tests need the engine's symbols, which a shared library hides: set ZAV_BUILD_TESTS=OFF "
            "or ZAV_EXPORT_ENGINE=ON")
    endif()
    enable_language(C)
    add_library(zav_engine OBJECT ${ZAV_ENGINE_SOURCE}/sqlite3.c)
    target_compile_definitions(zav_engine PRIVATE
        SQLITE_THREADSAFE=2             # a connection serves one thread at a time, and needs no lock of its own
        SQLITE_DEFAULT_MEMSTATUS=0      # nobody asks for the sum of all memory, which takes a lock at each request
        SQLITE_DQS=0                    # a name in double quotes that is not there is a mistake, and not a text
        SQLITE_LIKE_DOESNT_MATCH_BLOBS  # LIKE on bytes has no meaning, and without it the engine compares faster
        SQLITE_MAX_EXPR_DEPTH=0         # the parser's own stack is limit enough
        SQLITE_OMIT_DEPRECATED          # functions that nothing here calls
        SQLITE_OMIT_SHARED_CACHE        # no connection shares its pages with another; each would ask whether it does
        SQLITE_USE_ALLOCA               # short-lived memory from the stack
        SQLITE_ENABLE_DBSTAT_VTAB       # what each table and index takes of the file
        HAVE_USLEEP=1)                  # waits for locks in milliseconds, and not in seconds
    # Compiled as a distribution's engine is, whatever the library is built for: optimised, and without sanitizers, whose
    # options the C compiler, another one perhaps, need not know.
    set_property(TARGET zav_engine PROPERTY COMPILE_OPTIONS $<$<NOT:$<CONFIG:Release,RelWithDebInfo,MinSizeRel>>:-O2>)
    if(BUILD_SHARED_LIBS)
        set_target_properties(zav_engine PROPERTIES POSITION_INDEPENDENT_CODE ON)
    endif()
    if(BUILD_SHARED_LIBS AND NOT ZAV_EXPORT_ENGINE)
        set_target_properties(zav_engine PROPERTIES C_VISIBILITY_PRESET hidden)
    endif()
    # Its objects become part of the library; this is its header alone.
    add_library(zav_engine_header INTERFACE)
    target_include_directories(zav_engine_header SYSTEM INTERFACE $<BUILD_INTERFACE:${ZAV_ENGINE_SOURCE}>)
    include(GNUInstallDirs)
    set(zav_engine_header_folder ${CMAKE_INSTALL_INCLUDEDIR}/ZAVEventRepository/engine)
    set(zav_engine_objects $<TARGET_OBJECTS:zav_engine>)
    set(zav_engine_target $<BUILD_INTERFACE:zav_engine_header>)
    set(zav_engine_for_pkg_config "")
    set(zav_engine_libraries_for_pkg_config " -ldl -lm")
    set(zav_engine_for_debian "")
else()
    message(FATAL_ERROR "ZAV_ENGINE is sqlite, sqlcipher or amalgamation, not '${ZAV_ENGINE}'")
endif()
