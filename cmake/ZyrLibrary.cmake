include(GenerateExportHeader)

# zyr_add_library(<name> HEADERS <public header>... SOURCES <source>... LINK <public dependency>...)
#
# One of our shared libraries: hidden visibility, an export list, public headers under include/<name>/, the alias
# <name>::<name> here as for a consumer, and its install rules.
function(zyr_add_library name)
    cmake_parse_arguments(PARSE_ARGV 1 ARG "" "" "HEADERS;SOURCES;LINK")

    add_library(${name} SHARED ${ARG_SOURCES})
    add_library(${name}::${name} ALIAS ${name})

    string(TOUPPER ${name} upper)
    set(generated ${CMAKE_CURRENT_BINARY_DIR}/include)
    generate_export_header(${name}
        EXPORT_MACRO_NAME ${upper}_EXPORT EXPORT_FILE_NAME ${generated}/${name}/Export.h)
    list(TRANSFORM ARG_HEADERS PREPEND ${CMAKE_CURRENT_SOURCE_DIR}/include/${name}/)
    target_sources(${name} PUBLIC FILE_SET HEADERS
        BASE_DIRS ${CMAKE_CURRENT_SOURCE_DIR}/include ${generated}
        FILES ${ARG_HEADERS} ${generated}/${name}/Export.h)

    set(export_list ${PROJECT_SOURCE_DIR}/cmake/exports.map)
    set_target_properties(${name} PROPERTIES
        VERSION ${PROJECT_VERSION}
        SOVERSION ${PROJECT_VERSION_MAJOR}
        CXX_VISIBILITY_PRESET hidden
        VISIBILITY_INLINES_HIDDEN ON
        INSTALL_RPATH "$ORIGIN"
        LINK_DEPENDS ${export_list}
        VERIFY_INTERFACE_HEADER_SETS ON)
    # The public headers need C++17 only, so that a consumer may stay behind our own C++20.
    target_compile_features(${name} PUBLIC cxx_std_17)
    target_link_libraries(${name} PUBLIC ${ARG_LINK} PRIVATE $<BUILD_INTERFACE:zyr_build_flags>)
    target_link_options(${name} PRIVATE -Wl,--version-script=${export_list})
    if(NOT ZYR_SANITIZE) # whose run-time library only the program brings
        target_link_options(${name} PRIVATE -Wl,--no-undefined)
    endif()

    install(TARGETS ${name} EXPORT ${name}Targets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development
        FILE_SET HEADERS DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development)
endfunction()
