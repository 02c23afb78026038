# passway_warnings(TARGET): the warning level every target of ours builds with.
function(passway_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Werror)
endfunction()
