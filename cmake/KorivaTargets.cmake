add_library(koriva_options INTERFACE)
target_include_directories(koriva_options INTERFACE $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}>)
target_compile_options(
  koriva_options
  INTERFACE -Wall -Wextra -Wpedantic -Wshadow -Wconversion
            # g++ 12 sees an overlap in "text" + std::string() where there is none.
            $<$<CXX_COMPILER_ID:GNU>:-Wno-restrict>
            $<$<BOOL:${KORIVA_WARNINGS_AS_ERRORS}>:-Werror>)
if(KORIVA_SANITIZE)
  target_compile_options(
    koriva_options INTERFACE -fsanitize=${KORIVA_SANITIZE} -fno-sanitize-recover=all
                             -fno-omit-frame-pointer)
  target_link_options(koriva_options INTERFACE -fsanitize=${KORIVA_SANITIZE})
endif()

# koriva_layer(<name> <source>... LINK <library>...)
function(koriva_layer name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "LINK")
  add_library(${name} OBJECT ${arg_UNPARSED_ARGUMENTS})
  target_link_libraries(${name} PUBLIC koriva_options ${arg_LINK})
endfunction()
