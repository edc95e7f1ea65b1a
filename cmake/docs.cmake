# The API reference, and with it the test that nothing public is without a description.
add_test(NAME docs/ApiReference.IsCompleteAndGenerated
  COMMAND ${CMAKE_SOURCE_DIR}/tests/docs/api_reference.sh ${CMAKE_SOURCE_DIR}
    ${CMAKE_BINARY_DIR}/api-reference ${TESSALINE_EXPORTS})
set_tests_properties(docs/ApiReference.IsCompleteAndGenerated PROPERTIES
  LABELS docs TIMEOUT 300 SKIP_RETURN_CODE 77)
