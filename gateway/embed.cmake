# Writes a source file with the files of the page and the description of the interface.
#   cmake -DFOLDER=page -DDESCRIPTION=openapi.json -DOUTPUT=page_files.cpp -P embed.cmake
set(types html:text/html css:text/css js:text/javascript svg:image/svg+xml)

# A raw string literal takes some 64 KB with every compiler; longer ones are put together of pieces.
function(literal file result)
    file(READ ${file} text)
    set(pieces "")
    string(LENGTH "${text}" length)
    set(begin 0)
    while(begin LESS length)
        string(SUBSTRING "${text}" ${begin} 8000 piece)
        string(APPEND pieces "R\"~~~~(${piece})~~~~\"\n")
        math(EXPR begin "${begin} + 8000")
    endwhile()
    set(${result} "${pieces}" PARENT_SCOPE)
endfunction()

set(entries "")
foreach(pair ${types})
    string(REPLACE ":" ";" pair ${pair})
    list(GET pair 0 ending)
    list(GET pair 1 type)
    file(GLOB files RELATIVE ${FOLDER} ${FOLDER}/*.${ending})
    foreach(name ${files})
        literal(${FOLDER}/${name} text)
        string(APPEND entries "    {\"/${name}\", \"${type}; charset=utf-8\",\n${text}},\n")
    endforeach()
endforeach()
literal(${DESCRIPTION} description)
file(WRITE ${OUTPUT}.new "#include \"gateway/page_files.h\"\n\nnamespace gateway {\nnamespace {\n
constexpr PageFile files[] = {\n${entries}};\n
constexpr std::string_view description{\n${description}};\n
}  // namespace\n
std::span<const PageFile> page_files() {\n    return files;\n}\n
std::string_view interface_description() {\n    return description;\n}\n
}  // namespace gateway\n")
file(RENAME ${OUTPUT}.new ${OUTPUT})
