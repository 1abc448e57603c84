# SPDX-FileCopyrightText: 2026 The Kestrane authors
# SPDX-License-Identifier: Apache-2.0

# Installs BUILD into FOLDER, then configures, builds and runs the project in SOURCE against it.
function(run)
  execute_process(COMMAND ${ARGN} COMMAND_ERROR_IS_FATAL ANY)
endfunction()

file(REMOVE_RECURSE ${FOLDER})
run(${CMAKE_COMMAND} --install ${BUILD} --prefix ${FOLDER}/prefix)
run(${CMAKE_COMMAND} -S ${SOURCE} -B ${FOLDER}/build -G Ninja
  -D CMAKE_PREFIX_PATH=${FOLDER}/prefix -D CMAKE_CXX_COMPILER=${COMPILER})
run(${CMAKE_COMMAND} --build ${FOLDER}/build)
run(${FOLDER}/build/consumer)
