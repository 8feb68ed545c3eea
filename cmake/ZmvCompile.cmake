# How everything here is compiled. `zmv_flags` is for all code, `zmv_room_flags` for the rooms that make up the shared
# libraries, which use neither exceptions nor run-time type information and export only what ZMV_API marks.
add_library(zmv_flags INTERFACE)
target_compile_features(zmv_flags INTERFACE cxx_std_20 c_std_99)
target_include_directories(zmv_flags INTERFACE $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}>)
target_compile_options(zmv_flags INTERFACE -Wall -Wextra -Wconversion -Wshadow -Werror)

add_library(zmv_room_flags INTERFACE)
target_link_libraries(zmv_room_flags INTERFACE zmv_flags)
target_compile_options(zmv_room_flags INTERFACE
  -fvisibility=hidden -ffp-contract=off
  $<$<COMPILE_LANGUAGE:CXX>:-fno-exceptions -fno-rtti -fvisibility-inlines-hidden -fno-threadsafe-statics>)

if(ZMV_SANITIZE)
  # The rooms have no run-time type information, which the check of dynamic types would need.
  add_compile_options(-fsanitize=${ZMV_SANITIZE} -fno-sanitize=vptr -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${ZMV_SANITIZE})
endif()
if(ZMV_BUILD_FUZZ)
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()
