# Project-wide warnings; CI turns them into errors with -DVANTELOR_WERROR=ON.
function(vantelor_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wshadow=local -Wnon-virtual-dtor)
  if(VANTELOR_WERROR)
    target_compile_options(${target} PRIVATE -Werror)
  endif()
endfunction()
