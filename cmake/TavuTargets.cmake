# What every target of the project shares: warnings, sanitizers, symbols.

add_library(tavu_options INTERFACE)
target_compile_options(tavu_options INTERFACE
  -Wall -Wextra -Wconversion -Wsign-conversion -Wshadow -Wnon-virtual-dtor -Woverloaded-virtual
  -Wold-style-cast -Wimplicit-fallthrough -Wextra-semi -Werror)
if(WIN32)
  # The DLL goes into other people's processes and downloads: small before fast.
  target_compile_options(tavu_options INTERFACE $<$<CONFIG:Release>:-Os>)
endif()
if(TAVU_SANITIZE)
  add_compile_options(-fsanitize=${TAVU_SANITIZE} -fno-sanitize-recover=all
                      -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${TAVU_SANITIZE})
endif()
if(TAVU_FUZZERS)
  add_compile_options(-fsanitize=fuzzer-no-link)  # coverage, which guides the fuzzers
endif()
if(WIN32)
  # Sections are kept apart so that the linker can drop what nobody calls. The frame pointer stays:
  # the call stack of a crash document follows its chain. -gcodeview only says in which form: without
  # -g the PDB holds no source lines.
  add_compile_options(-g -gcodeview -ffunction-sections -fdata-sections -fno-omit-frame-pointer
                      -fms-extensions)
  add_compile_definitions(WIN32_LEAN_AND_MEAN NOMINMAX UNICODE _UNICODE _WIN32_WINNT=0x0601)
  add_link_options(-Wl,--gc-sections)
endif()

# tavu_write_pdb(target): TARGET.pdb beside the linked file, for the debuggers of Windows. What
# MinGW's own libraries bring along for other debuggers is taken out of the file again.
function(tavu_write_pdb target)
  if(WIN32)
    target_link_options(${target} PRIVATE
      -Wl,--pdb=$<TARGET_FILE_DIR:${target}>/$<TARGET_FILE_BASE_NAME:${target}>.pdb
      -Wl,--Xlink=-pdbaltpath:%_PDB%)  # the file names it without this machine's folders
    add_custom_command(TARGET ${target} POST_BUILD
      COMMAND ${CMAKE_STRIP} --strip-all $<TARGET_FILE:${target}> VERBATIM)
  endif()
endfunction()

# tavu_add_version(target description): what the Explorer, installers and crash documents tell about
# the file. The version is the project's.
function(tavu_add_version target description)
  get_target_property(type ${target} TYPE)
  if(type STREQUAL SHARED_LIBRARY)
    set(file_type VFT_DLL)
    set(suffix ${CMAKE_SHARED_LIBRARY_SUFFIX})
  else()
    set(file_type VFT_APP)
    set(suffix ${CMAKE_EXECUTABLE_SUFFIX})
  endif()
  set(resource ${CMAKE_CURRENT_BINARY_DIR}/${target}_version.rc)
  configure_file(${PROJECT_SOURCE_DIR}/cmake/version.rc.in ${resource} @ONLY)
  target_sources(${target} PRIVATE ${resource})
endfunction()

# tavu_ship(target): `scripts/build` makes this one.
add_custom_target(shipped)
function(tavu_ship target)
  add_dependencies(shipped ${target})
endfunction()

# The header-only libraries of the companion programs and of the tests, as Debian packages them.
# A Windows build sees a folder of links to just these: /usr/include itself, with the C library's
# headers of this system, must never be on its path.
set(tavu_header_only ${PROJECT_BINARY_DIR}/header-only)
if(NOT EXISTS ${tavu_header_only}/nlohmann)
  file(MAKE_DIRECTORY ${tavu_header_only})
  foreach(entry asio asio.hpp CLI nlohmann)
    if(NOT EXISTS /usr/include/${entry})
      message(FATAL_ERROR "/usr/include/${entry} is missing; scripts/setup installs it.")
    endif()
    file(CREATE_LINK /usr/include/${entry} ${tavu_header_only}/${entry} SYMBOLIC)
  endforeach()
endif()
add_library(tavu_header_only INTERFACE)
target_include_directories(tavu_header_only SYSTEM INTERFACE ${tavu_header_only})
target_compile_definitions(tavu_header_only INTERFACE ASIO_STANDALONE)
if(WIN32)
  # Asio does not recognise that this toolchain has threads, and its timers need one.
  target_compile_definitions(tavu_header_only INTERFACE ASIO_HAS_THREADS)
  target_link_libraries(tavu_header_only INTERFACE ws2_32 mswsock)
else()
  find_package(Threads REQUIRED)
  target_link_libraries(tavu_header_only INTERFACE Threads::Threads)
endif()
