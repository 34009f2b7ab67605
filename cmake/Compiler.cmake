# Warnings and sanitizers, the same for every target of the project.
add_compile_options(-Wall -Wextra -Wconversion -Wshadow)
if(PLENDIX_WERROR)
  add_compile_options(-Werror)
endif()
if(PLENDIX_SANITIZE)
  add_compile_options(-fsanitize=${PLENDIX_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${PLENDIX_SANITIZE})
endif()
