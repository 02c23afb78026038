# Hardening: the flags Debian 12's dpkg-buildflags gives for hardening=+all, on every target of the
# project (libraries, the plug-in, passway-sign, tests, benchmarks and whatever is added later).
#   compile  -fstack-protector-strong -fstack-clash-protection -fcf-protection -Wformat
#            -Werror=format-security, and -D_FORTIFY_SOURCE=2 where it works (below)
#   link     -Wl,-z,relro -Wl,-z,now; executables are position-independent and link with -pie
# _FORTIFY_SOURCE needs optimisation (glibc warns at -O0), so only the optimised build types get it,
# and never with the sanitizers, whose interceptors stand in for the checked functions.
# PASSWAY_HARDEN_FORTIFY is a generator expression, 1 where _FORTIFY_SOURCE is on and 0 elsewhere.
option(PASSWAY_HARDEN "Build with stack protector, _FORTIFY_SOURCE, full RELRO and PIE" ON)

include(CheckPIESupported)
check_pie_supported(LANGUAGES C CXX)  # with CMP0083 NEW, executables now link with -pie

if(NOT PASSWAY_HARDEN)
  set(PASSWAY_HARDEN_FORTIFY 0)
  return()
endif()

add_compile_options(-fstack-protector-strong -fstack-clash-protection -Wformat -Werror=format-security)
if(CMAKE_SYSTEM_PROCESSOR MATCHES "^(x86_64|AMD64|i.86)$")
  add_compile_options(-fcf-protection)
endif()
add_link_options(LINKER:-z,relro LINKER:-z,now)

if(PASSWAY_SANITIZE OR PASSWAY_FUZZ)
  set(PASSWAY_HARDEN_FORTIFY 0)
else()
  set(PASSWAY_HARDEN_FORTIFY "$<CONFIG:Release,RelWithDebInfo,MinSizeRel>")
  # -U first: a compiler that predefines _FORTIFY_SOURCE would otherwise warn about the redefinition.
  add_compile_options("$<${PASSWAY_HARDEN_FORTIFY}:-U_FORTIFY_SOURCE;-D_FORTIFY_SOURCE=2>")
endif()
