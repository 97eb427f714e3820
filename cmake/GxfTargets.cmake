# Language level and warnings of everything that the project compiles.
function(gxf_compile_options target)
    target_compile_features(${target} PUBLIC cxx_std_20)
    target_compile_options(${target} PRIVATE -Wall -Wextra -Wconversion -Wshadow -Wformat=2
                                             $<$<BOOL:${GXF_WERROR}>:-Werror>)
    # g++ 12 warns of its own std::string where one is put together from parts.
    if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
        target_compile_options(${target} PRIVATE -Wno-restrict)
    endif()
endfunction()

# gxf_add_library(NAME [STATIC] LINK TARGET...)
#
# A library of all sources below the current folder. A folder that holds headers alone gives a
# header-only library, so that its users needn't know.
function(gxf_add_library name)
    cmake_parse_arguments(PARSE_ARGV 1 arg "STATIC" "" "LINK")
    file(GLOB_RECURSE sources CONFIGURE_DEPENDS "${CMAKE_CURRENT_SOURCE_DIR}/*.cpp")
    if(sources)
        set(type)
        if(arg_STATIC)
            set(type STATIC)
        endif()
        add_library(${name} ${type} ${sources})
        gxf_compile_options(${name})
        set(scope PUBLIC)
        set_target_properties(${name} PROPERTIES VERSION ${PROJECT_VERSION} SOVERSION
                                                 ${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR})
    else()
        add_library(${name} INTERFACE)
        set(scope INTERFACE)
    endif()
    add_library(GxfTypes::${name} ALIAS ${name})
    target_include_directories(${name} ${scope} "$<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}>"
                                                "$<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>")
    target_link_libraries(${name} ${scope} ${arg_LINK})
endfunction()
