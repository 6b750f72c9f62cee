# What holds for everything that is compiled here: sanitizers, or else hardening.

set(TARN_SANITIZE "" CACHE STRING "Sanitizers for the whole build, such as address,undefined or thread")

if(TARN_SANITIZE)
  add_compile_options(-fsanitize=${TARN_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${TARN_SANITIZE})
else()
  # Fortified functions need an optimising compiler. The sanitizers check more, and see less through them.
  add_compile_options("$<$<CONFIG:Release,RelWithDebInfo,MinSizeRel>:-U_FORTIFY_SOURCE;-D_FORTIFY_SOURCE=2>")
endif()
add_compile_options(-fstack-protector-strong)
add_link_options(-fstack-protector-strong)  # on Windows its failure routine is in a library of its own

option(TARN_COVERAGE "The libraries count which of their lines and branches run (g++)" OFF)
if(TARN_COVERAGE)
  add_link_options(--coverage)
endif()
