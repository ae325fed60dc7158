# What `cmake --install` lays down: the library, its public headers, and two ways to find them
# (a CMake package and a pkg-config file).
#
# Every header under src/database is public unless its name says otherwise (…private.h, …_p.h) or
# it is listed here, with its path below src/database.
set(DATABASE_PRIVATE_HEADERS
    bcdiipairs.h
    bcdiiround.h
    indexes/concurrentsort.h
    indexes/digestsort.h
    indexes/rowexchange.h
    indexes/scratchmemory.h
    indexes/sortaid.h
    indexes/sortbatch.h
    indexes/sortguide.h
    indexes/sortkey.h
    indexes/sortsweep.h
    indexes/spreadsort.h
    indexes/tieranks.h
    joins/joincells.h
    joins/joinchunks.h
    joins/joinkeyindex.h
    joins/joinrequest.h
    joins/partnerfinder.h
    persistence/replacingfile.h
    persistence/rowfiller.h
    persistence/rowformat.h
    persistence/rowstream.h
    pricing/blackscholes.h
    pricing/optionbatch.h
    services/concurrently.h
    services/logmessages.h
    services/logwriter.h
    services/runnablewrapper.h
    services/threadannotations.h
    settingstags.h
    settingsvalue.h
    tables/arrivallist.h
    tables/columnspan.h
    tables/firsterror.h
    tables/indexregistry.h
    tables/pendingrow.h
    tables/keytext.h
    tables/prefetch.h
    tables/streamtext.h
    values/digittext.h
    values/localetext.h
    values/numberscanner.h
    values/numbervalue.h
    values/pairs128.h
    values/xdecimalframe.h
    values/xdecimalreader.h)

include(CMakePackageConfigHelpers)

set(packageDir ${CMAKE_INSTALL_LIBDIR}/cmake/Database)
set(headerRoot ${PROJECT_SOURCE_DIR}/src/database)

file(GLOB_RECURSE headers CONFIGURE_DEPENDS RELATIVE ${headerRoot} ${headerRoot}/*.h)
list(FILTER headers EXCLUDE REGEX "(private|_p)\\.h$")
if(DATABASE_PRIVATE_HEADERS)
    list(REMOVE_ITEM headers ${DATABASE_PRIVATE_HEADERS})
endif()
foreach(header IN LISTS headers)
    get_filename_component(folder database/${header} DIRECTORY)
    install(FILES ${headerRoot}/${header} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/${folder})
endforeach()

install(TARGETS database EXPORT DatabaseTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(EXPORT DatabaseTargets NAMESPACE Database:: DESTINATION ${packageDir})
set_target_properties(database PROPERTIES EXPORT_NAME Database)

configure_package_config_file(
    ${CMAKE_CURRENT_LIST_DIR}/DatabaseConfig.cmake.in
    ${PROJECT_BINARY_DIR}/DatabaseConfig.cmake
    INSTALL_DESTINATION ${packageDir})
write_basic_package_version_file(
    ${PROJECT_BINARY_DIR}/DatabaseConfigVersion.cmake
    COMPATIBILITY SameMajorVersion)
install(FILES
    ${PROJECT_BINARY_DIR}/DatabaseConfig.cmake
    ${PROJECT_BINARY_DIR}/DatabaseConfigVersion.cmake
    DESTINATION ${packageDir})

# The pkg-config file names its prefix relative to itself, so that an installed tree can be moved;
# only a distributor's absolute directories are written as they are.
if(IS_ABSOLUTE ${CMAKE_INSTALL_LIBDIR})
    set(pcPrefix ${CMAKE_INSTALL_PREFIX})
    set(pcLibDir ${CMAKE_INSTALL_LIBDIR})
else()
    file(RELATIVE_PATH pcPrefix /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
    string(REGEX REPLACE "/$" "" pcPrefix "\${pcfiledir}/${pcPrefix}")
    set(pcLibDir "\${prefix}/${CMAKE_INSTALL_LIBDIR}")
endif()
if(IS_ABSOLUTE ${CMAKE_INSTALL_INCLUDEDIR})
    set(pcIncludeDir ${CMAKE_INSTALL_INCLUDEDIR})
else()
    set(pcIncludeDir "\${prefix}/${CMAKE_INSTALL_INCLUDEDIR}")
endif()
configure_file(${CMAKE_CURRENT_LIST_DIR}/database.pc.in ${PROJECT_BINARY_DIR}/database.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/database.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
