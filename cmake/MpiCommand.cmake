# The command for several processes, sylvora-mpi. MPI is linked to it only.
#
# SYLVORA_MPI: ON builds it, AUTO builds it if MPI is found (as the preset release does), OFF does
# not.
set(SYLVORA_MPI_FOUND FALSE)
if(SYLVORA_MPI)
    set(MPI_CXX_SKIP_MPICXX ON)  # only the C interface
    set(required "")
    if(NOT SYLVORA_MPI STREQUAL "AUTO")
        set(required REQUIRED)
    endif()
    find_package(MPI ${required} QUIET COMPONENTS CXX)
    set(SYLVORA_MPI_FOUND ${MPI_CXX_FOUND})
endif()

if(SYLVORA_MPI_FOUND)
    file(GLOB mpi_sources CONFIGURE_DEPENDS mpi/*.cpp)
    list(FILTER mpi_sources EXCLUDE REGEX "/main\\.cpp$")
    add_library(sylvora_mpi OBJECT ${mpi_sources})
    target_include_directories(sylvora_mpi PUBLIC src frontend mpi)
    target_link_libraries(sylvora_mpi PUBLIC MPI::MPI_CXX)
    sylvora_own_code(sylvora_mpi)

    add_executable(sylvora_mpi_command mpi/main.cpp $<TARGET_OBJECTS:sylvora_frontend>)
    set_target_properties(sylvora_mpi_command PROPERTIES
        OUTPUT_NAME sylvora-mpi
        RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR})
    target_link_libraries(sylvora_mpi_command PRIVATE sylvora_mpi sylvora_static)
    sylvora_own_code(sylvora_mpi_command)
    install(TARGETS sylvora_mpi_command)
elseif(SYLVORA_MPI)
    message(STATUS "MPI: not found, sylvora-mpi is not built")
endif()
