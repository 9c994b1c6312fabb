# Tests of the Python package as a whole, for the first interpreter that has it in this build: the
# wheel, the source distribution, types, the examples in docstrings, and a debug interpreter.
set(package_python "")
foreach(version IN LISTS SYLVORA_PYTHON_VERSIONS)
    if(version VERSION_GREATER_EQUAL 3.11 AND NOT package_python)
        set(package_python ${SYLVORA_PYTHON_${version}})
        set(package_dir ${PROJECT_BINARY_DIR}/python/${version})
    endif()
endforeach()

# sylvora_package_test(NAME COMMAND...): a test of the package in the build tree.
function(sylvora_package_test name)
    add_test(NAME python.${name} COMMAND ${ARGN}
        WORKING_DIRECTORY ${CMAKE_CURRENT_SOURCE_DIR}/python)
    set_tests_properties(python.${name} PROPERTIES TIMEOUT 300 ENVIRONMENT
        "PYTHONPATH=${package_dir};PYTHONDONTWRITEBYTECODE=1")
endfunction()

if(package_python AND NOT SYLVORA_SANITIZE)
    sylvora_package_test(doctests
        ${package_python} ${CMAKE_CURRENT_SOURCE_DIR}/python_package/run_doctests.py)

    # A debug interpreter counts references and checks the C API's rules. Modules for the stable ABI
    # are good for it too.
    find_program(SYLVORA_DEBUG_PYTHON python3d HINTS /usr/bin)
    if(SYLVORA_DEBUG_PYTHON)
        file(GLOB debug_tests CONFIGURE_DEPENDS python/test_sylvora.py python/test_core*.py)
        list(TRANSFORM debug_tests REPLACE ".*/(.*)\\.py" "\\1")
        sylvora_package_test(debug ${SYLVORA_DEBUG_PYTHON} -X dev -m unittest ${debug_tests})
    else()
        add_test(NAME python.debug COMMAND ${CMAKE_COMMAND} -E echo "no python3d (python3-dbg)")
        set_tests_properties(python.debug PROPERTIES SKIP_REGULAR_EXPRESSION "no python3d")
    endif()
endif()

if(package_python AND CMAKE_BUILD_TYPE STREQUAL "Release" AND NOT SYLVORA_SANITIZE)
    set(mypy_settings ${PROJECT_SOURCE_DIR}/pyproject.toml)
    sylvora_package_test(types.mypy ${SYLVORA_TEST_PYTHON} -m mypy --strict
        --config-file ${mypy_settings} --cache-dir ${PROJECT_BINARY_DIR}/mypy
        ${PROJECT_SOURCE_DIR}/python/sylvora ${PROJECT_SOURCE_DIR}/python/backend/sylvora_build)
    sylvora_package_test(types.stubs ${SYLVORA_TEST_PYTHON} -m mypy.stubtest sylvora._core
        --mypy-config-file ${mypy_settings})

    add_test(NAME python.wheel
        COMMAND ${CMAKE_COMMAND} --build ${PROJECT_BINARY_DIR} --target wheel)
    set_tests_properties(python.wheel PROPERTIES FIXTURES_SETUP wheel TIMEOUT 300)
    foreach(name IN ITEMS test_wheel test_sdist test_installed)
        add_test(NAME python.package.${name} COMMAND ${package_python} -m unittest ${name}
            WORKING_DIRECTORY ${CMAKE_CURRENT_SOURCE_DIR}/python_package)
        set_tests_properties(python.package.${name} PROPERTIES FIXTURES_REQUIRED wheel TIMEOUT 900
            ENVIRONMENT "SYLVORA_BUILD=${PROJECT_BINARY_DIR};PYTHONDONTWRITEBYTECODE=1")
    endforeach()
    # It compiles the library once more.
    set_tests_properties(python.package.test_sdist PROPERTIES COST 200 PROCESSORS 2)
endif()
