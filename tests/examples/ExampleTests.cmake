# The scripts of examples/, and the Python code of the documents, with the package of the first
# interpreter that has it in this build (see python_package/PackageTests.cmake). They need Debian's
# packages, which scripts/setup installs.
if(package_python)
    set(examples_environment "PYTHONPATH=${package_dir}" PYTHONDONTWRITEBYTECODE=1 MPLBACKEND=Agg
        "PATH=${PROJECT_BINARY_DIR}:$ENV{PATH}")
    set(examples_folder ${CMAKE_CURRENT_BINARY_DIR}/examples)
    foreach(name first_minute csv_to_tuned_model ranking custom_objective missing_values
            reproducibility)
        add_test(NAME examples.${name}
            COMMAND ${package_python} ${CMAKE_CURRENT_SOURCE_DIR}/examples/run.py
                    ${PROJECT_SOURCE_DIR}/examples/${name}.py ${examples_folder}/${name})
        set_tests_properties(examples.${name} PROPERTIES
            TIMEOUT 120 ENVIRONMENT "${examples_environment}")
    endforeach()
    add_test(NAME guide
        COMMAND ${package_python}
                ${CMAKE_CURRENT_SOURCE_DIR}/check_guide.py ${examples_folder}/guide)
    set_tests_properties(guide PROPERTIES TIMEOUT 300 ENVIRONMENT "${examples_environment}")
endif()
