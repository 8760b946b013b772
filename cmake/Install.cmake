# What is installed, in three components: runtime (the shared library), development and tools.
include(CMakePackageConfigHelpers)
include(GNUInstallDirs)

install(TARGETS ZAVEventRepository EXPORT ZAVEventRepositoryTargets
    RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT runtime
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development
    INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})

get_target_property(headers ZAVEventRepository PUBLIC_HEADERS_OF_USERS)
install(FILES ${headers} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/ZAVEventRepository COMPONENT development)
if(ZAV_EXPORT_ENGINE)
    install(FILES ${ZAV_ENGINE_SOURCE}/sqlite3.h DESTINATION ${zav_engine_header_folder} COMPONENT development)
endif()

# Who links the static library links what stands behind it; who links the shared one needs nothing else.
get_target_property(uriparser_target ZAVEventRepository URIPARSER_TARGET)
if(BUILD_SHARED_LIBS)
    set(pkg_config_definitions " -DZAV_SHARED")
    set(pkg_config_dependencies "")
else()
    set(pkg_config_definitions "")
    set(pkg_config_dependencies
        "Requires.private: ${zav_engine_for_pkg_config}liburiparser, spdlog, fmt\nLibs.private: -pthread${zav_engine_libraries_for_pkg_config}\n")
endif()
if(ZAV_EXPORT_ENGINE)
    string(PREPEND pkg_config_definitions " -I\${includedir}/ZAVEventRepository/engine")
endif()

set(package_folder ${CMAKE_INSTALL_LIBDIR}/cmake/ZAVEventRepository)
if(PROJECT_VERSION_MAJOR EQUAL 0)
    set(compatibility SameMinorVersion)
else()
    set(compatibility SameMajorVersion)
endif()
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/ZAVEventRepositoryConfig.cmake.in
    ${PROJECT_BINARY_DIR}/ZAVEventRepositoryConfig.cmake INSTALL_DESTINATION ${package_folder})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/ZAVEventRepositoryConfigVersion.cmake
    COMPATIBILITY ${compatibility})
install(FILES ${PROJECT_BINARY_DIR}/ZAVEventRepositoryConfig.cmake
    ${PROJECT_BINARY_DIR}/ZAVEventRepositoryConfigVersion.cmake
    DESTINATION ${package_folder} COMPONENT development)
install(EXPORT ZAVEventRepositoryTargets NAMESPACE ZAV:: DESTINATION ${package_folder} COMPONENT development)

# A prefix that is moved takes its description for pkg-config with it.
if(IS_ABSOLUTE ${CMAKE_INSTALL_LIBDIR})
    set(pkg_config_prefix ${CMAKE_INSTALL_PREFIX})
else()
    file(RELATIVE_PATH upwards /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
    string(REGEX REPLACE "/$" "" upwards ${upwards})
    set(pkg_config_prefix "\${pcfiledir}/${upwards}")
endif()
foreach(folder LIBDIR INCLUDEDIR)
    if(IS_ABSOLUTE ${CMAKE_INSTALL_${folder}})
        set(pkg_config_${folder} ${CMAKE_INSTALL_${folder}})
    else()
        set(pkg_config_${folder} "\${prefix}/${CMAKE_INSTALL_${folder}}")
    endif()
endforeach()
configure_file(${PROJECT_SOURCE_DIR}/cmake/ZAVEventRepository.pc.in ${PROJECT_BINARY_DIR}/ZAVEventRepository.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/ZAVEventRepository.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
    COMPONENT development)

if(TARGET zavevents)
    # Found where it was installed with the tool, wherever that is; a system's own folders need no help.
    if(BUILD_SHARED_LIBS AND NOT CMAKE_INSTALL_PREFIX STREQUAL "/usr" AND NOT APPLE)
        file(RELATIVE_PATH path ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
        set_target_properties(zavevents PROPERTIES INSTALL_RPATH "$ORIGIN/${path}")
    endif()
    install(TARGETS zavevents RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
    install(FILES ${PROJECT_SOURCE_DIR}/Documentation/zavevents.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1
        COMPONENT tools)
    install(FILES ${PROJECT_SOURCE_DIR}/Tools/zavevents/completion/zavevents.bash
        DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions RENAME zavevents COMPONENT tools)
    # Where zsh looks by itself: Debian's keeps what its packages bring apart.
    if(CMAKE_INSTALL_PREFIX STREQUAL "/usr" AND EXISTS /etc/debian_version)
        set(zsh_folder zsh/vendor-completions)
    else()
        set(zsh_folder zsh/site-functions)
    endif()
    install(FILES ${PROJECT_SOURCE_DIR}/Tools/zavevents/completion/_zavevents
        DESTINATION ${CMAKE_INSTALL_DATADIR}/${zsh_folder} COMPONENT tools)
endif()

# Each component may be installed without the others, and brings the licence under its package's name.
get_target_property(soversion ZAVEventRepository SOVERSION)
set(runtime_package libzaveventrepository${soversion})
set(development_package libzaveventrepository-dev)
set(tools_package zavevents)
set(components development)
if(BUILD_SHARED_LIBS)
    list(APPEND components runtime)
endif()
if(TARGET zavevents)
    list(APPEND components tools)
endif()
foreach(component IN LISTS components)
    install(FILES ${PROJECT_SOURCE_DIR}/LICENSE DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${${component}_package}
        RENAME copyright COMPONENT ${component})
endforeach()
