# pip install into a fresh virtual environment that sees the system's packages, without a network. pip builds where the
# package lies: from a copy, so that nothing is left in the tree.
file(REMOVE_RECURSE ${VENV} ${VENV}-source)
get_filename_component(tree ${PACKAGE} DIRECTORY)
file(COPY ${PACKAGE} DESTINATION ${VENV}-source PATTERN __pycache__ EXCLUDE)
file(COPY ${tree}/CMakeLists.txt DESTINATION ${VENV}-source)
execute_process(COMMAND ${PYTHON} -m venv --system-site-packages --without-pip ${VENV} COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND ${CMAKE_COMMAND} -E env ORVACAM_BUILD_DIR=${BUILD_DIR}
  ${VENV}/bin/python -m pip install --quiet --no-build-isolation --no-index --disable-pip-version-check
    --root-user-action=ignore ${VENV}-source/python
  COMMAND_ERROR_IS_FATAL ANY)
