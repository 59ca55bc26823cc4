# Settings that every target of this tree shares, and the one way to declare a library of it.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)

find_program(RAMDISK_CCACHE ccache)
if(RAMDISK_CCACHE)
    set(CMAKE_CXX_COMPILER_LAUNCHER "${RAMDISK_CCACHE}")
endif()
find_program(RAMDISK_MOLD mold)
if(RAMDISK_MOLD AND NOT APPLE)
    add_link_options(-fuse-ld=mold)
endif()

add_library(ramdisk_options INTERFACE)
target_include_directories(ramdisk_options INTERFACE "${PROJECT_SOURCE_DIR}")
target_compile_options(ramdisk_options INTERFACE -Wall -Wextra -Wpedantic -Wconversion -Wshadow)
# Sanitized code misleads the compiler's flow analysis, inside the standard library as well: what it then warns of
# is told and no more. The plain builds have the same warnings as errors.
if(RAMDISK_WARNINGS_ARE_ERRORS AND NOT RAMDISK_SANITIZE)
    target_compile_options(ramdisk_options INTERFACE -Werror)
endif()
if(CMAKE_UNITY_BUILD)
    # Joined sources have different things of one name without hiding any.
    target_compile_options(ramdisk_options INTERFACE -Wno-shadow)
endif()
if(RAMDISK_SANITIZE)
    target_compile_options(ramdisk_options INTERFACE
        -fsanitize=${RAMDISK_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer -O1
        # Lines, and not variables as well, are what a report shows; they cost a third less time to make.
        -g1)
    target_link_options(ramdisk_options INTERFACE -fsanitize=${RAMDISK_SANITIZE})
endif()

# ramdisk_library(NAME FOLDERS... [DEPENDS targets...]): a static library of every source below the folders.
# A folder that belongs to one platform is named only where that platform is built.
function(ramdisk_library name)
    cmake_parse_arguments(ARG "" "" "FOLDERS;DEPENDS;PRIVATE_DEPENDS" ${ARGN})
    set(sources "")
    foreach(folder IN LISTS ARG_FOLDERS)
        file(GLOB found CONFIGURE_DEPENDS "${folder}/*.cpp" "${folder}/*.h")
        list(APPEND sources ${found})
    endforeach()
    add_library(${name} STATIC ${sources})
    set_target_properties(${name} PROPERTIES LINKER_LANGUAGE CXX)
    target_link_libraries(${name} PUBLIC ramdisk_options ${ARG_DEPENDS} PRIVATE ${ARG_PRIVATE_DEPENDS})
endfunction()
