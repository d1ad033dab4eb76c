# Warnings for the project's own targets only; third-party headers come in as SYSTEM.
function(halvora_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor
                                           -Wold-style-cast -Wcast-align -Woverloaded-virtual)
endfunction()
