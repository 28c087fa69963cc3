# What `cmake --install` puts under the prefix (GNU layout), and the packages
# cpack makes of it: a Debian package on Linux, a zip on Windows.
#
#   bin/orbelle-run                      the runner
#   LIBDIR/liborbelle.so.0               the library a host loads
#   LIBDIR/orbelle/libharnix.so, ...     the host stand-ins the library links,
#                                        private: they are no system library
#   LIBDIR/orbelle/zanth/shlib/iiop/     the agent stand-ins (ZANTH_HOME=LIBDIR/orbelle/zanth)
#   include/orbelle/                     the host's headers
#   LIBDIR/pkgconfig/orbelle.pc          (not on Windows: its paths are absolute)
#   LIBDIR/cmake/Orbelle/                find_package(Orbelle)
#   lib/python3/dist-packages/orbelle_locust.py
#   lib/omniidl/omniidl_be/idl2csv.py    where omniidl looks for back-ends
#   share/doc/orbelle/                   README, copyright and licences
#   share/man/man1/orbelle-run.1.gz
#
# On Windows the DLLs a host loads sit in bin/, beside orbelle-run.exe, where
# LoadLibrary looks first; the agent stand-ins in zanth/shlib/iiop/; no
# Python tools.

include(CMakePackageConfigHelpers)

# Who and what the packages are; orbelle.pc and the changelog use them too.
set(CPACK_PACKAGE_NAME orbelle)
set(CPACK_PACKAGE_VENDOR "Orbelle")
set(CPACK_PACKAGE_CONTACT "Orbelle maintainers <maintainers@orbelle.example>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "client-side CORBA runtime for load-testing script hosts")

set(ORBELLE_PRIVATE_LIBDIR ${CMAKE_INSTALL_LIBDIR}/orbelle)
set(ORBELLE_ZANTH_DIR ${ORBELLE_PRIVATE_LIBDIR}/zanth)
if(WIN32)
  set(ORBELLE_ZANTH_DIR zanth)
endif()
# Shared libraries are not executables: Debian wants them 0644.
set(_lib_permissions OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)

# Installed files find each other by the install's own layout, relative to
# themselves, so that a prefix can be moved and DESTDIR staging works: the
# library finds its stand-ins in orbelle/ beside it; the runner finds the
# library by name through its RUNPATH (dlopen of a bare name consults the
# program's RUNPATH) and then in the system's folders.
file(RELATIVE_PATH _bin_to_lib ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
set_target_properties(orbelle PROPERTIES INSTALL_RPATH "$ORIGIN/orbelle")
set_target_properties(orbelle-run PROPERTIES INSTALL_RPATH "$ORIGIN/${_bin_to_lib}")
set_target_properties(harnix tellcat PROPERTIES INSTALL_RPATH "")
# A program built against the installed package finds the headers here.
target_include_directories(orbelle INTERFACE $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)

install(TARGETS orbelle EXPORT OrbelleTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} PERMISSIONS ${_lib_permissions}
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(TARGETS harnix tellcat
  LIBRARY DESTINATION ${ORBELLE_PRIVATE_LIBDIR} PERMISSIONS ${_lib_permissions}
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
  ARCHIVE DESTINATION ${ORBELLE_PRIVATE_LIBDIR})
install(TARGETS orbelle-run RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
if(TARGET orbelle-record)
  install(TARGETS orbelle-record RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()
foreach(agent agent_brokvane agent_oldvane)
  if(TARGET ${agent})
    install(TARGETS ${agent}
      LIBRARY DESTINATION ${ORBELLE_ZANTH_DIR}/shlib/iiop PERMISSIONS ${_lib_permissions})
  endif()
endforeach()

# The headers a host needs; limits.h and kinds.h are the library's own.
install(FILES include/orbelle/host.h include/orbelle/orbelle.h include/orbelle/vbagent.h
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/orbelle)

# The Python tools, where Debian's Python and omniidl look for them.
if(NOT WIN32)
  set(ORBELLE_INSTALL_PYTHONDIR lib/python3/dist-packages CACHE STRING
      "Folder under the prefix for the Locust module orbelle_locust")
  install(FILES tools/locust/orbelle_locust.py DESTINATION ${ORBELLE_INSTALL_PYTHONDIR})

  # omniidl imports back-end NAME as omniidl_be.NAME. Debian's omniidl keeps
  # omniidl_be in lib/omniidl of its own prefix; found there, the generator
  # goes into the same folder under ours (with the prefix /usr: the very
  # folder, and `omniidl -b idl2csv` needs no -p). Without omniidl, or in
  # another layout, it goes beside orbelle_locust, where omniidl's second
  # try, the plain module name, finds it on Python's path.
  set(_be_dir ${ORBELLE_INSTALL_PYTHONDIR})
  find_program(OMNIIDL omniidl)
  if(OMNIIDL)
    get_filename_component(_omniidl ${OMNIIDL} REALPATH)
    get_filename_component(_omniidl_prefix ${_omniidl} DIRECTORY)
    get_filename_component(_omniidl_prefix ${_omniidl_prefix} DIRECTORY)
    if(EXISTS ${_omniidl_prefix}/lib/omniidl/omniidl_be/__init__.py)
      set(_be_dir lib/omniidl/omniidl_be)
    endif()
  endif()
  set(ORBELLE_INSTALL_OMNIIDL_BEDIR ${_be_dir} CACHE STRING
      "Folder under the prefix for the omniidl back-end idl2csv")
  install(FILES tools/idl2csv/idl2csv.py DESTINATION ${ORBELLE_INSTALL_OMNIIDL_BEDIR})
endif()

# pkg-config and find_package(Orbelle): Orbelle::orbelle links the library;
# a host that loads it with dlopen takes its path from the pkg-config
# variable "library" or from $<TARGET_FILE:Orbelle::orbelle>.
# orbelle.pc holds absolute paths (the configured prefix); a zip unpacked
# anywhere has none, so Windows gets only the relocatable CMake package.
if(NOT WIN32)
  set(ORBELLE_LIBRARY_FILE ${CMAKE_INSTALL_FULL_LIBDIR}/liborbelle.so.0)
  set(ORBELLE_FULL_ZANTH_DIR ${CMAKE_INSTALL_PREFIX}/${ORBELLE_ZANTH_DIR})
  configure_file(${CMAKE_CURRENT_LIST_DIR}/package/orbelle.pc.in ${CMAKE_BINARY_DIR}/orbelle.pc @ONLY)
  install(FILES ${CMAKE_BINARY_DIR}/orbelle.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endif()

set(_cmake_dir ${CMAKE_INSTALL_LIBDIR}/cmake/Orbelle)
install(EXPORT OrbelleTargets NAMESPACE Orbelle:: DESTINATION ${_cmake_dir})
configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/package/OrbelleConfig.cmake.in
  ${CMAKE_BINARY_DIR}/OrbelleConfig.cmake INSTALL_DESTINATION ${_cmake_dir}
  PATH_VARS ORBELLE_ZANTH_DIR)
# The soname is 0 while the version is 0.x: any 0.x satisfies a request for 0.y.
write_basic_package_version_file(${CMAKE_BINARY_DIR}/OrbelleConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_BINARY_DIR}/OrbelleConfig.cmake ${CMAKE_BINARY_DIR}/OrbelleConfigVersion.cmake
        DESTINATION ${_cmake_dir})

# Documents: the README, the copyright and licence texts (uPlot is compiled
# into orbelle-run, so its licence goes wherever orbelle-run goes).
install(FILES README.md ${CMAKE_CURRENT_LIST_DIR}/package/copyright DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(FILES third_party/uplot/LICENSE DESTINATION ${CMAKE_INSTALL_DOCDIR}/uplot)

# Debian wants its changelog and manual pages compressed, without a name or
# time stamp in the gzip header. It is made here, for every Linux install, so that the
# package's content is the install's content.
find_program(ORBELLE_GZIP gzip)
if(NOT WIN32 AND ORBELLE_GZIP)
  string(TIMESTAMP ORBELLE_CHANGELOG_DATE "%a, %d %b %Y %H:%M:%S +0000" UTC)
  configure_file(${CMAKE_CURRENT_LIST_DIR}/package/changelog.in ${CMAKE_BINARY_DIR}/changelog @ONLY)
  execute_process(COMMAND ${ORBELLE_GZIP} -9nf ${CMAKE_BINARY_DIR}/changelog)
  install(FILES ${CMAKE_BINARY_DIR}/changelog.gz DESTINATION ${CMAKE_INSTALL_DOCDIR})
  # The manual pages of the programs installed, compressed the same way.
  set(_pages orbelle-run)
  if(TARGET orbelle-record)
    list(APPEND _pages orbelle-record)
  endif()
  foreach(page ${_pages})
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/docs/${page}.1)
    file(COPY ${CMAKE_SOURCE_DIR}/docs/${page}.1 DESTINATION ${CMAKE_BINARY_DIR})
    execute_process(COMMAND ${ORBELLE_GZIP} -9nf ${CMAKE_BINARY_DIR}/${page}.1)
    install(FILES ${CMAKE_BINARY_DIR}/${page}.1.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
  endforeach()
endif()

# -- Packages --------------------------------------------------------------
set(CPACK_PACKAGE_INSTALL_DIRECTORY orbelle)
set(CPACK_RESOURCE_FILE_README ${CMAKE_SOURCE_DIR}/README.md)
# No debugging information in the packages (a RelWithDebInfo build keeps it
# in the build tree).
set(CPACK_STRIP_FILES ON)

if(WIN32)
  set(CPACK_GENERATOR ZIP)
  if(CMAKE_SIZEOF_VOID_P EQUAL 8)
    set(CPACK_SYSTEM_NAME win64)
  else()
    set(CPACK_SYSTEM_NAME win32)
  endif()
else()
  set(CPACK_GENERATOR DEB)
  # The package holds what `cmake --install` puts under the configured
  # prefix; build it with -DCMAKE_INSTALL_PREFIX=/usr. (The zip holds the
  # install's folders at its top.)
  set(CPACK_PACKAGING_INSTALL_PREFIX ${CMAKE_INSTALL_PREFIX})
  set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
  set(CPACK_DEBIAN_PACKAGE_SECTION devel)
  set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
  # The synopsis is CPACK_PACKAGE_DESCRIPTION_SUMMARY; an empty line parts
  # paragraphs.
  set(CPACK_DEBIAN_PACKAGE_DESCRIPTION "Orbelle is a shared library with one door, _iiop_entry, through which a
virtual-user script host calls CORBA objects over GIOP 1.0 / IIOP 1.0.
It reads interface descriptions generated from IDL, binds to objects by
IOR, list file, naming service or agent, and traces every call.

This package holds the library, the host headers, orbelle-run (a
command-line host that runs script files, alone or as many users),
the omniidl back-end idl2csv that writes the descriptions, and the
Python module orbelle_locust that runs scripts as Locust users.")
  # Dependencies of the programs and libraries come from dpkg-shlibdeps.
  # What it cannot see: the Python modules need python3 to be anything, and
  # are of use with omniidl (the generator) and Locust (the User class).
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
  set(CPACK_DEBIAN_PACKAGE_DEPENDS "python3:any")
  set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "omniidl, omniorb, python3-locust")
  # shlibs tells packages built against liborbelle.so.0 what to depend on.
  set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
  set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
  # triggers: ldconfig runs after the library comes or goes. prerm: Python
  # writes byte code beside the modules when root imports them; it goes with
  # the package.
  set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA ${CMAKE_CURRENT_LIST_DIR}/package/triggers
      ${CMAKE_CURRENT_LIST_DIR}/package/prerm)
endif()
include(CPack)
