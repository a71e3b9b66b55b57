# Copies the folder FROM to TO when FROM exists (a folder another change has
# not added yet is no error); files already in TO and unchanged are left alone.
if(EXISTS "${FROM}")
  file(COPY "${FROM}/" DESTINATION "${TO}")
endif()
