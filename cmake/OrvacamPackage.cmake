# Debian packages, one a component of the installation; scripts/package makes them.
if(NOT PROJECT_IS_TOP_LEVEL)
  return()
endif()
set(ORVACAM_MAINTAINER "liborvacam maintainers <maintainers@liborvacam.invalid>" CACHE STRING
  "Who answers for the Debian packages: name and address")
set(ORVACAM_PACKAGE_REVISION 1 CACHE STRING "The Debian revision of the packages")
set(library liborvacam${PROJECT_VERSION_MAJOR})
set(version ${PROJECT_VERSION}-${ORVACAM_PACKAGE_REVISION})

# component, its package, section, Multi-Arch: whether packages of several architectures may be there at once ("same"), or
# one of any of them serves programs of all ("foreign")
set(packages
  "runtime ${library} libs same"
  "development liborvacam-dev libdevel same"
  "program orvacam science foreign"
  "documentation orvacam-doc doc foreign")
if(ORVACAM_BUILD_PYTHON)
  list(APPEND packages "python python3-orvacam python no")
endif()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME liborvacam)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")  # each package has its own
set(CPACK_PACKAGE_CONTACT "${ORVACAM_MAINTAINER}")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SOURCE liborvacam)
set(CPACK_DEBIAN_PACKAGE_RELEASE ${ORVACAM_PACKAGE_REVISION})
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
# The program and the Python package find the library of this build; which package has it is said below.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/src)

set(debian ${PROJECT_BINARY_DIR}/debian)
set(folder ${PROJECT_SOURCE_DIR}/packaging)
configure_file(${folder}/changelog.in ${debian}/changelog @ONLY)
find_program(GZIP gzip)
if(GZIP)
  foreach(text ${debian}/changelog:changelog.Debian ${PROJECT_SOURCE_DIR}/CHANGELOG.md:changelog)
    string(REGEX MATCH "^(.*):(.*)$" pair ${text})
    execute_process(COMMAND ${GZIP} -9nc ${CMAKE_MATCH_1} OUTPUT_FILE ${debian}/${CMAKE_MATCH_2}.gz)
  endforeach()
endif()

set(CPACK_COMPONENTS_ALL)
foreach(package ${packages})
  string(REPLACE " " ";" package ${package})
  list(GET package 0 component)
  list(GET package 1 name)
  string(TOUPPER ${component} COMPONENT)
  list(APPEND CPACK_COMPONENTS_ALL ${component})
  set(CPACK_DEBIAN_${COMPONENT}_PACKAGE_NAME ${name})
  list(GET package 2 section)
  list(GET package 3 multiarch)
  # CPack writes a field's value as it is, and has no variable for this field.
  set(CPACK_DEBIAN_${COMPONENT}_PACKAGE_SECTION "${section}\nMulti-Arch: ${multiarch}")
  file(READ ${folder}/${component}.txt CPACK_DEBIAN_${COMPONENT}_DESCRIPTION)
  # Debian wants these with every package; an installation by hand does not.
  install(FILES ${folder}/copyright ${debian}/changelog.Debian.gz ${debian}/changelog.gz
    DESTINATION share/doc/${name} COMPONENT ${component} EXCLUDE_FROM_ALL)
endforeach()

set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA ${debian}/symbols ${debian}/shlibs ${folder}/triggers)

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "${library} (= ${version})")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SUGGESTS orvacam-doc)

set(CPACK_DEBIAN_PROGRAM_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PROGRAM_PACKAGE_DEPENDS "${library} (>= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_PROGRAM_PACKAGE_RECOMMENDS python3-orvacam)
set(CPACK_DEBIAN_PROGRAM_PACKAGE_SUGGESTS orvacam-doc)

set(CPACK_DEBIAN_DOCUMENTATION_PACKAGE_ARCHITECTURE all)
install(DIRECTORY ${PROJECT_BINARY_DIR}/docs/html DESTINATION share/doc/orvacam-doc COMPONENT documentation
  EXCLUDE_FROM_ALL)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/examples DESTINATION share/doc/orvacam-doc COMPONENT documentation
  EXCLUDE_FROM_ALL PATTERN CMakeLists.txt EXCLUDE)
install(FILES ${folder}/doc-base DESTINATION share/doc-base RENAME orvacam-doc COMPONENT documentation EXCLUDE_FROM_ALL)

set(CPACK_DEBIAN_PYTHON_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PYTHON_PACKAGE_DEPENDS "${library} (>= ${PROJECT_VERSION}), python3, python3-numpy")
set(CPACK_DEBIAN_PYTHON_PACKAGE_RECOMMENDS "python3-astropy, python3-dask, python3-jinja2, python3-matplotlib, python3-pil")
set(CPACK_DEBIAN_PYTHON_PACKAGE_CONTROL_EXTRA ${folder}/python/postinst ${folder}/python/prerm)

# Strings that the script before packing needs; CPack hands it what begins with its name alone.
set(CPACK_ORVACAM_LIBRARY ${library})
set(CPACK_ORVACAM_DEBIAN ${debian})
set(CPACK_ORVACAM_SYMBOLS ${folder}/symbols)
set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/cmake/prepare_packages.cmake)
include(CPack)
