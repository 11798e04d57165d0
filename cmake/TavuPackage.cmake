# What a developer on Windows gets, as `cmake --install` lays it out and scripts/package packs it. Its
# README is one of its own; documents lie where the repository has them, so that their links hold.
include(CMakePackageConfigHelpers)

set(tavu_config_folder lib/cmake/TAVU)

install(TARGETS TAVU EXPORT TAVUTargets
  RUNTIME DESTINATION bin
  ARCHIVE DESTINATION lib
  INCLUDES DESTINATION include)
install(FILES $<TARGET_FILE_DIR:TAVU>/TAVU.pdb DESTINATION bin)
install(TARGETS TAVU_CrashReporter tavu_collector tavu_host tavu_crashing_host RUNTIME DESTINATION bin)
install(DIRECTORY include/tavu DESTINATION include)
install(EXPORT TAVUTargets NAMESPACE TAVU:: DESTINATION ${tavu_config_folder})

configure_package_config_file(cmake/TAVUConfig.cmake.in ${PROJECT_BINARY_DIR}/TAVUConfig.cmake
  INSTALL_DESTINATION ${tavu_config_folder})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/TAVUConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/TAVUConfig.cmake ${PROJECT_BINARY_DIR}/TAVUConfigVersion.cmake
  DESTINATION ${tavu_config_folder})

install(FILES docs/package/README.md CHANGELOG.md DESTINATION .)
install(FILES docs/wire.md docs/crashes.md docs/triage.md docs/fleet.md DESTINATION docs)
install(DIRECTORY docs/fleet DESTINATION docs)
install(FILES examples/host/host.cc DESTINATION examples/host)
install(FILES programs/collector/README.md DESTINATION programs/collector)
install(FILES examples/python_reader/read_requests.py DESTINATION examples/python_reader)
install(PROGRAMS tools/explain tools/triage DESTINATION tools)
install(DIRECTORY tools/crash_reading tools/crash_triage DESTINATION tools
  PATTERN "__pycache__" EXCLUDE)

set(CPACK_GENERATOR ZIP)
set(CPACK_PACKAGE_NAME TAVU)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_SYSTEM_NAME windows-x64)
include(CPack)
