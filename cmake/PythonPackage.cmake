# Installs what PythonModule.cmake builds, as the component `python`, and has the target `wheel`.
#
# Each interpreter's package goes to lib/python<version>/dist-packages below the prefix for Debian's
# interpreters, to lib/python<version>/site-packages for others: with the prefix /usr/local or the
# interpreter's own, that is where it looks. SYLVORA_PYTHON_INSTALL_DIR names another folder, if the
# build is for one interpreter.
set(SYLVORA_PYTHON_INSTALL_DIR "" CACHE STRING
    "Folder for the Python package, absolute or below the prefix; empty: as the interpreter expects")
list(LENGTH SYLVORA_PYTHON_VERSIONS count)
if(SYLVORA_PYTHON_INSTALL_DIR AND NOT count EQUAL 1)
    message(FATAL_ERROR "SYLVORA_PYTHON_INSTALL_DIR: this build is for ${count} interpreters "
                        "(${SYLVORA_PYTHON_VERSIONS}); name one in SYLVORA_PYTHONS")
endif()

foreach(version IN LISTS SYLVORA_PYTHON_VERSIONS)
    list(GET SYLVORA_PYTHON_ANSWER_${version} 3 packages)
    set(folder lib/python${version}/${packages})
    if(SYLVORA_PYTHON_INSTALL_DIR)
        set(folder ${SYLVORA_PYTHON_INSTALL_DIR})
    endif()
    if(version VERSION_GREATER_EQUAL 3.9)
        install(DIRECTORY python/sylvora DESTINATION ${folder} COMPONENT python FILES_MATCHING
            PATTERN *.py PATTERN *.pyi PATTERN py.typed PATTERN __pycache__ EXCLUDE)
        string(APPEND folder /sylvora)
    endif()
    install(TARGETS sylvora_python_${version} DESTINATION ${folder} COMPONENT python)
    if(CMAKE_STRIP)
        cmake_path(ABSOLUTE_PATH folder BASE_DIRECTORY "\${CMAKE_INSTALL_PREFIX}")
        install(CODE "execute_process(COMMAND \"${CMAKE_STRIP}\"
            \"\$ENV{DESTDIR}${folder}/$<TARGET_FILE_NAME:sylvora_python_${version}>\"
            COMMAND_ERROR_IS_FATAL ANY)" COMPONENT python)
    endif()
endforeach()

# Wheels of the modules that this build has, in dist/. Those for 3.11 and later have the same name
# and are good for the same interpreters: the first one is packed.
if(PROJECT_IS_TOP_LEVEL)
    add_custom_target(wheel DEPENDS sylvora_python)
    set(packed "")
    foreach(version IN LISTS SYLVORA_PYTHON_VERSIONS)
        set(abi ${version})
        if(version VERSION_GREATER_EQUAL 3.11)
            set(abi abi3)
        endif()
        if(version VERSION_GREATER_EQUAL 3.9 AND NOT abi IN_LIST packed)
            list(APPEND packed ${abi})
            add_custom_command(TARGET wheel POST_BUILD
                COMMAND ${CMAKE_COMMAND} -E env
                        PYTHONPATH=${PROJECT_SOURCE_DIR}/python/backend PYTHONDONTWRITEBYTECODE=1
                        ${SYLVORA_PYTHON_${version}} -m sylvora_build wheel
                        ${PROJECT_BINARY_DIR}/dist build-folder=${PROJECT_BINARY_DIR} VERBATIM)
        endif()
    endforeach()
endif()
