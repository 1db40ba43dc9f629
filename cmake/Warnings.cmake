# Project-wide warnings; CI turns them into errors with -DVANTELOR_WERROR=ON.
function(vantelor_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wnon-virtual-dtor
                         $<$<CXX_COMPILER_ID:GNU>:-Wshadow=local> $<$<CXX_COMPILER_ID:Clang>:-Wshadow-uncaptured-local>)
  if(VANTELOR_WERROR)
    target_compile_options(${target} PRIVATE -Werror)
  endif()
endfunction()
