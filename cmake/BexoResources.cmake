# ICU resource bundles: <dir>/<bundle>/<locale>.txt compiled with genrb into
# ${BEXO_RESOURCE_DIR}/<bundle>/<locale>.res (target bexo_resources). The
# example bundles are installed under <sysconfdir>/kvelo/resource, where the
# daemons open them ("/etc/kvelo/resource/<bundle>"); test bundles are not.
find_program(BEXO_GENRB genrb REQUIRED)
set(BEXO_RESOURCE_DIR ${PROJECT_BINARY_DIR}/resource)
add_custom_target(bexo_resources ALL)

function(bexo_add_resource_bundles name source_dir install)
  file(GLOB sources CONFIGURE_DEPENDS ${source_dir}/*/*.txt)
  set(outputs)
  set(bundles)
  foreach(src ${sources})
    get_filename_component(locale ${src} NAME_WE)
    get_filename_component(bundle_dir ${src} DIRECTORY)
    get_filename_component(bundle ${bundle_dir} NAME)
    set(out_dir ${BEXO_RESOURCE_DIR}/${bundle})
    add_custom_command(OUTPUT ${out_dir}/${locale}.res
      COMMAND ${CMAKE_COMMAND} -E make_directory ${out_dir}
      COMMAND ${BEXO_GENRB} -q -e UTF-8 -d ${out_dir} ${src}
      DEPENDS ${src} COMMENT "genrb ${bundle}/${locale}.res" VERBATIM)
    list(APPEND outputs ${out_dir}/${locale}.res)
    list(APPEND bundles ${bundle})
  endforeach()
  add_custom_target(bexo_resources_${name} DEPENDS ${outputs})
  add_dependencies(bexo_resources bexo_resources_${name})
  if(install)
    list(REMOVE_DUPLICATES bundles)
    foreach(bundle ${bundles})
      install(DIRECTORY ${BEXO_RESOURCE_DIR}/${bundle}
              DESTINATION ${CMAKE_INSTALL_SYSCONFDIR}/kvelo/resource)
    endforeach()
  endif()
endfunction()

bexo_add_resource_bundles(examples ${PROJECT_SOURCE_DIR}/examples/resource TRUE)
if(BEXO_BUILD_TESTS)
  bexo_add_resource_bundles(tests ${PROJECT_SOURCE_DIR}/tests/resource FALSE)
endif()
