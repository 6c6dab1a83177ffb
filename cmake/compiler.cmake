# Warnings, sanitizers and the thread-safety analysis, the same for every target of the project.
find_package(Threads REQUIRED)

add_library(ferret_options INTERFACE)
target_compile_options(ferret_options INTERFACE -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion
    -Wnon-virtual-dtor -Woverloaded-virtual -Wcast-align -Wold-style-cast)
if(WERROR)
    target_compile_options(ferret_options INTERFACE -Werror)
endif()
if(CMAKE_UNITY_BUILD AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # Several source files in one look like headers to it, and so many functions at once make it stop inlining.
    target_compile_options(ferret_options INTERFACE -Wno-subobject-linkage --param=large-unit-insns=1000000)
endif()
if(CMAKE_CXX_COMPILER_ID MATCHES "Clang")
    target_compile_options(ferret_options INTERFACE -Wthread-safety -Werror=thread-safety)
endif()
target_link_libraries(ferret_options INTERFACE Threads::Threads)

if(SANITIZER)
    add_compile_options(-fsanitize=${SANITIZER} -fno-omit-frame-pointer -fno-sanitize-recover=all)
    add_link_options(-fsanitize=${SANITIZER})
endif()
if(FERRET_FUZZ)
    add_compile_options(-fsanitize=fuzzer-no-link)
endif()

# ferret_add_library(NAME layer-dependencies...): a static library of all sources in and below the calling
# folder, which sees the public headers of its dependencies only.
function(ferret_add_library name)
    file(GLOB_RECURSE sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/*.cpp
        ${CMAKE_CURRENT_SOURCE_DIR}/*.h)
    if(NOT sources)
        # A folder that is still empty: other targets may link it all the same.
        file(WRITE ${CMAKE_CURRENT_BINARY_DIR}/empty.cpp "")
        set(sources ${CMAKE_CURRENT_BINARY_DIR}/empty.cpp)
    endif()
    add_library(${name} STATIC ${sources})
    set_target_properties(${name} PROPERTIES LINKER_LANGUAGE CXX)
    target_link_libraries(${name} PUBLIC ${ARGN} PRIVATE ferret_options)
endfunction()
