# Compiler settings shared by every target of the project.
#   hoxen_options: C++17, warnings, and the sanitizers chosen with HOXEN_SANITIZE.
#   HOXEN_HARDEN: the hardening flags Debian builds its packages with (dpkg-buildflags,
#   hardening=+all) for the whole tree, so that tests run what the packages ship.
add_library(hoxen_options INTERFACE)
target_compile_features(hoxen_options INTERFACE cxx_std_17)
target_compile_options(hoxen_options INTERFACE -Wall -Wextra $<$<BOOL:${HOXEN_WERROR}>:-Werror>)

if(HOXEN_SANITIZE)
  # Applied to the whole tree so that tests, benchmarks and tools are instrumented too.
  add_compile_options(-fsanitize=${HOXEN_SANITIZE} -fno-omit-frame-pointer -g)
  add_link_options(-fsanitize=${HOXEN_SANITIZE})
  if(HOXEN_SANITIZE MATCHES "undefined")
    add_compile_options(-fno-sanitize-recover=all)
  endif()
endif()

if(HOXEN_HARDEN)
  include(CheckPIESupported)
  check_pie_supported()
  set(CMAKE_POSITION_INDEPENDENT_CODE ON)
  add_compile_options(-fstack-protector-strong -Wformat -Werror=format-security
                      $<$<CONFIG:Release,RelWithDebInfo,MinSizeRel>:-D_FORTIFY_SOURCE=2>)
  add_link_options(-Wl,-z,relro -Wl,-z,now)
endif()

# Adds one static library from every source file of a folder.
function(hoxen_glob_sources out dir)
  file(GLOB sources CONFIGURE_DEPENDS ${dir}/*.cpp ${dir}/*.h)
  set(${out} ${sources} PARENT_SCOPE)
endfunction()
