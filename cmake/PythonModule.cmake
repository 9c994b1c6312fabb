# Builds Python's `sylvora` for each interpreter, in python/<major.minor>/. CPython 3.9 and later get
# the package: sylvora/ with links to the sources of python/sylvora and the extension module
# _core<suffix>, which contains the library; from 3.11 on it uses the stable ABI. CPython 2.7 and
# 3.8 get the older module, the file sylvora<suffix>.
#
# Configuring fails if an interpreter that SYLVORA_PYTHONS names is not usable. If the variable is
# empty, the default interpreters are used if present.
#
# cmake/PythonPackage.cmake installs them and has the target `wheel`.
#
# Sets SYLVORA_PYTHON_VERSIONS (3.11 2.7 ...) and for each version SYLVORA_PYTHON_<version>, the
# interpreter, and SYLVORA_PYTHON_ANSWER_<version>, the list that sylvora_ask_python returned.

# Sets `result` to the list of the interpreter's version, include directory, suffix of extension
# modules and name of folders of packages (site-packages, or Debian's dist-packages), or to an empty
# string on failure.
function(sylvora_ask_python interpreter result)
    set(${result} "" PARENT_SCOPE)
    execute_process(
        COMMAND ${interpreter} -c "
import os, sys, sysconfig
variable = sysconfig.get_config_var
print(';'.join(['%d.%d' % sys.version_info[:2], sysconfig.get_paths()['include'],
                variable('EXT_SUFFIX') or variable('SO'),
                os.path.basename(sysconfig.get_paths()['platlib'])]))"
        RESULT_VARIABLE status OUTPUT_VARIABLE answer ERROR_QUIET OUTPUT_STRIP_TRAILING_WHITESPACE)
    if(status EQUAL 0)
        set(${result} "${answer}" PARENT_SCOPE)
    endif()
endfunction()

# Sets `obstacle` to the reason why the module cannot be built for the interpreter with this answer,
# or to an empty string.
function(sylvora_python_obstacle answer obstacle)
    set(${obstacle} "" PARENT_SCOPE)
    if(NOT answer)
        set(${obstacle} "does not run" PARENT_SCOPE)
        return()
    endif()
    list(GET answer 0 version)
    list(GET answer 1 include)
    if(NOT version VERSION_EQUAL 2.7 AND version VERSION_LESS 3.8)
        set(${obstacle} "is ${version}; the module needs 2.7, or 3.8 and later" PARENT_SCOPE)
    elseif(version IN_LIST SYLVORA_PYTHON_VERSIONS)
        set(${obstacle} "is a second ${version}" PARENT_SCOPE)
    elseif(NOT EXISTS "${include}/Python.h")
        set(${obstacle} "has no ${include}/Python.h; install its development package" PARENT_SCOPE)
    endif()
endfunction()

# Compiles and links `module`, an extension module, for the interpreter with this answer.
function(sylvora_module_settings module answer)
    list(GET answer 1 include)
    target_include_directories(${module} PRIVATE ${PROJECT_SOURCE_DIR}/src ${PROJECT_SOURCE_DIR}/binding)
    target_include_directories(${module} SYSTEM PRIVATE ${include})
    target_link_libraries(${module} PRIVATE sylvora_static)
    sylvora_own_code(${module})
endfunction()

# Adds the target `module`, the older module for the interpreter with this answer, in
# <folder>/<major.minor>.
function(sylvora_define_module module answer folder)
    list(GET answer 0 version)
    list(GET answer 2 suffix)
    add_library(${module} MODULE ${handle_sources} ${PROJECT_SOURCE_DIR}/binding/Module.cpp)
    set_target_properties(${module} PROPERTIES
        PREFIX "" OUTPUT_NAME sylvora SUFFIX "${suffix}"
        LIBRARY_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/${folder}/${version})
    sylvora_module_settings(${module} "${answer}")
endfunction()

# Adds the target `module`, the package's extension module, in python/<major.minor>/sylvora, and
# puts links to the package's sources beside it.
function(sylvora_define_package module answer)
    list(GET answer 0 version)
    list(GET answer 2 suffix)
    add_library(${module} MODULE ${handle_sources} ${core_sources})
    if(version VERSION_GREATER_EQUAL 3.11)
        set(suffix .abi3.so)
        target_compile_definitions(${module} PRIVATE Py_LIMITED_API=0x030B0000)
    endif()
    set(folder ${PROJECT_BINARY_DIR}/python/${version}/sylvora)
    set_target_properties(${module} PROPERTIES
        PREFIX "" OUTPUT_NAME _core SUFFIX "${suffix}" LIBRARY_OUTPUT_DIRECTORY ${folder})
    sylvora_module_settings(${module} "${answer}")
    foreach(file IN LISTS package_files)
        cmake_path(RELATIVE_PATH file BASE_DIRECTORY ${PROJECT_SOURCE_DIR}/python/sylvora
            OUTPUT_VARIABLE name)
        cmake_path(GET name PARENT_PATH parent)
        file(MAKE_DIRECTORY ${folder}/${parent})
        file(CREATE_LINK ${file} ${folder}/${name} SYMBOLIC)
    endforeach()
endfunction()

function(sylvora_add_module answer)
    list(GET answer 0 version)
    set(module sylvora_python_${version})
    if(version VERSION_GREATER_EQUAL 3.9)
        sylvora_define_package(${module} "${answer}")
    else()
        sylvora_define_module(${module} "${answer}" python)
    endif()
    set_target_properties(${module} PROPERTIES
        LINK_DEPENDS ${PROJECT_SOURCE_DIR}/cmake/module.map)
    target_link_options(${module} PRIVATE
        LINKER:--version-script=${PROJECT_SOURCE_DIR}/cmake/module.map)
    add_dependencies(sylvora_python ${module})
endfunction()

set(interpreters ${SYLVORA_PYTHONS})
if(NOT SYLVORA_PYTHONS)
    set(interpreters /usr/bin/python3 python2.7)
endif()
set(SYLVORA_PYTHON_VERSIONS "")
file(GLOB handle_sources CONFIGURE_DEPENDS binding/*.cpp)
list(FILTER handle_sources EXCLUDE REGEX "/Module\\.cpp$")
file(GLOB core_sources CONFIGURE_DEPENDS python/core/*.cpp)
file(GLOB_RECURSE package_files CONFIGURE_DEPENDS python/sylvora/*.py python/sylvora/*.pyi
    python/sylvora/py.typed)
add_custom_target(sylvora_python)

foreach(interpreter IN LISTS interpreters)
    sylvora_ask_python(${interpreter} answer)
    sylvora_python_obstacle("${answer}" obstacle)
    if(NOT obstacle)
        list(GET answer 0 version)
        list(APPEND SYLVORA_PYTHON_VERSIONS ${version})
        set(SYLVORA_PYTHON_${version} ${interpreter})
        set(SYLVORA_PYTHON_ANSWER_${version} "${answer}")
        sylvora_add_module("${answer}")
        message(STATUS "python ${version}: module for ${interpreter}")
    elseif(SYLVORA_PYTHONS)
        message(FATAL_ERROR "SYLVORA_PYTHONS: ${interpreter} ${obstacle}")
    elseif(NOT interpreter STREQUAL "python2.7")
        message(STATUS "${interpreter} ${obstacle}: no module for it")
    endif()
endforeach()
set(SYLVORA_NO_PYTHON2 "")
if(NOT "2.7" IN_LIST SYLVORA_PYTHON_VERSIONS)
    set(SYLVORA_NO_PYTHON2 "python 2.7: not found, its half of the module's tests is skipped")
    message(STATUS "${SYLVORA_NO_PYTHON2}")
endif()

include(cmake/PythonPackage.cmake)
