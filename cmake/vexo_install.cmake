# cmake --install: the libraries, the public headers, the CLI, the simulator,
# pkg-config files and the CMake package (find_package(vexohw) gives
# vexohw::vexohw and vexohw::vexoplatform).
include(CMakePackageConfigHelpers)

install(TARGETS vexoplatform libvexohw EXPORT vexohwTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} NAMELINK_COMPONENT Development)
install(TARGETS libvexohw_static ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT Development)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/vexohw ${PROJECT_SOURCE_DIR}/include/vexoplatform
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT Development FILES_MATCHING PATTERN "*.h")

set(VEXO_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/vexohw)
install(EXPORT vexohwTargets NAMESPACE vexohw:: DESTINATION ${VEXO_CMAKE_DIR} COMPONENT Development)
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/vexohwConfig.cmake.in
  ${CMAKE_BINARY_DIR}/vexohwConfig.cmake INSTALL_DESTINATION ${VEXO_CMAKE_DIR})
# Symbols are only ever added within a major version (see abi/*/nodes).
write_basic_package_version_file(${CMAKE_BINARY_DIR}/vexohwConfigVersion.cmake
  VERSION ${PROJECT_VERSION} COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_BINARY_DIR}/vexohwConfig.cmake ${CMAKE_BINARY_DIR}/vexohwConfigVersion.cmake
  DESTINATION ${VEXO_CMAKE_DIR} COMPONENT Development)

# pkg-config: paths relative to ${prefix} where GNUInstallDirs gives them so.
foreach(d LIBDIR INCLUDEDIR)
  if(IS_ABSOLUTE ${CMAKE_INSTALL_${d}})
    set(VEXO_PC_${d} ${CMAKE_INSTALL_${d}})
  else()
    set(VEXO_PC_${d} "\${prefix}/${CMAKE_INSTALL_${d}}")
  endif()
endforeach()
# What the static library needs beyond its Requires.private.
set(VEXO_PC_LIBS_PRIVATE ${CMAKE_THREAD_LIBS_INIT})
foreach(l ${CMAKE_DL_LIBS})
  string(APPEND VEXO_PC_LIBS_PRIVATE " -l${l}")
endforeach()
string(STRIP "${VEXO_PC_LIBS_PRIVATE}" VEXO_PC_LIBS_PRIVATE)
foreach(pc libvexohw libvexoplatform)
  configure_file(${PROJECT_SOURCE_DIR}/cmake/${pc}.pc.in ${CMAKE_BINARY_DIR}/${pc}.pc @ONLY)
  install(FILES ${CMAKE_BINARY_DIR}/${pc}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT Development)
endforeach()

# The simulator: vexosim finds vexosim-tools beside itself and the drive
# emulator in <libdir>/vexosim; its appliance descriptions go to <datadir>/vexosim.
if(TARGET vexosim)
  install(TARGETS vexosim RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()
if(TARGET vexosim_tools)
  install(TARGETS vexosim_tools RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()
if(TARGET vexosim_drive)
  install(TARGETS vexosim_drive LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}/vexosim)
endif()
file(GLOB VEXO_EXAMPLE_BOXES ${PROJECT_SOURCE_DIR}/examples/*.json)
install(FILES ${VEXO_EXAMPLE_BOXES} DESTINATION ${CMAKE_INSTALL_DATADIR}/vexosim)
