# Windows-specific parts of the build.
#
# Cross build (cmake/mingw-w64-x86_64.cmake; scripts/windows-check drives it): the test program
# velkor_windows_tests.exe, which loads VELKORLI1M.dll at run time with LoadLibrary and
# GetProcAddress, as the spreadsheet front end does, and calls it with OLE Automation arrays
# built by the system's oleaut32. It does not link the DLL's import library.
#
# Native (Linux) build: the test vba.declarations, which regenerates the macro declarations
# bindings/vba/VELKORLI1M.bas from the headers and compares them with the committed file and
# with the undecorated exports of the shared library.

if(WIN32)
  # FindOpenMP hands the import library libgomp.dll.a to the link; the compiler driver's own
  # -fopenmp together with -static links libgomp.a instead, so the DLL needs no libgomp-1.dll.
  if(TARGET OpenMP::OpenMP_CXX)
    set_property(TARGET OpenMP::OpenMP_CXX PROPERTY INTERFACE_LINK_LIBRARIES -fopenmp)
  endif()
  if(VELKOR_BUILD_TESTS)
    file(GLOB velkor_windows_test_sources CONFIGURE_DEPENDS
      ${PROJECT_SOURCE_DIR}/tests/windows/*.cpp)
    add_executable(velkor_windows_tests ${velkor_windows_test_sources})
    target_include_directories(velkor_windows_tests PRIVATE
      ${PROJECT_SOURCE_DIR}/include ${PROJECT_SOURCE_DIR}/tests)
    target_compile_options(velkor_windows_tests PRIVATE ${VELKOR_WARNINGS})
    target_compile_definitions(velkor_windows_tests PRIVATE UNICODE _UNICODE)
    target_link_libraries(velkor_windows_tests PRIVATE oleaut32)
    target_link_options(velkor_windows_tests PRIVATE -static -municode)
    # Loaded at run time from the program's own folder, never linked.
    add_dependencies(velkor_windows_tests VELKORLI1M)
    set_target_properties(velkor_windows_tests VELKORLI1M PROPERTIES
      RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)
  endif()
elseif(VELKOR_BUILD_TESTS)
  find_package(Python3 COMPONENTS Interpreter)
  if(Python3_Interpreter_FOUND)
    add_test(NAME vba.declarations
      COMMAND Python3::Interpreter ${PROJECT_SOURCE_DIR}/scripts/gen-vba --check
              --library $<TARGET_FILE:VELKORLI1M>)
  else()
    message(WARNING "Python 3 not found: the test vba.declarations is not defined")
  endif()
endif()
