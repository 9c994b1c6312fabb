# Tests of sylvora-mpi, as mpi.<file>. Not under sanitizers, which report MPI itself.
add_executable(sylvora_mpi_exchanges mpi/Exchanges.cpp)
target_link_libraries(sylvora_mpi_exchanges PRIVATE sylvora_mpi sylvora_static)
sylvora_own_code(sylvora_mpi_exchanges)

# Ranks share the processors, and more than one job may run. Containers forbid the kernel's copies
# between processes, and may hide the topology of the processors, which hwloc would complain of.
# They may have a host name that no name server knows, which would cost each job five seconds.
set(mpi_environment
    "SYLVORA_COMMAND=${command}" "SYLVORA_MPI_COMMAND=$<TARGET_FILE:sylvora_mpi_command>"
    "SYLVORA_MPI_EXCHANGES=$<TARGET_FILE:sylvora_mpi_exchanges>" "MPIEXEC=${MPIEXEC_EXECUTABLE}"
    OMPI_MCA_btl_vader_single_copy_mechanism=none OMPI_MCA_hwloc_base_binding_policy=none
    OMPI_MCA_mpi_yield_when_idle=1 HWLOC_HIDE_ERRORS=2 "RES_OPTIONS=timeout:1 attempts:1"
    PYTHONPATH=${CMAKE_CURRENT_SOURCE_DIR}/command PYTHONDONTWRITEBYTECODE=1)
foreach(name IN ITEMS test_exchanges test_failures test_ranks)
    add_test(NAME mpi.${name} COMMAND ${SYLVORA_TEST_PYTHON} -m unittest ${name}
        WORKING_DIRECTORY ${CMAKE_CURRENT_SOURCE_DIR}/mpi)
    set_tests_properties(mpi.${name} PROPERTIES TIMEOUT 600 COST 100 PROCESSORS 2
        ENVIRONMENT "${mpi_environment}")
endforeach()
