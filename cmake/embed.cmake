# Run as a script: writes FILE's content into the C++ source OUTPUT, as the function FUNCTION of NAMESPACE, which returns
# a std::string_view. HEADER declares it.
file(READ ${FILE} digits HEX)
string(REGEX REPLACE "([0-9a-f][0-9a-f])" "'\\\\x\\1'," bytes "${digits}")
string(REGEX REPLACE "(('[^']*',)('[^']*',)('[^']*',)('[^']*',)('[^']*',)('[^']*',)('[^']*',)('[^']*',))" "\\1\n" bytes
  "${bytes}")
file(WRITE ${OUTPUT} "#include \"${HEADER}\"

namespace ${NAMESPACE} {

namespace {

constexpr char content[] = {
${bytes}'\\0'};

}  // namespace

std::string_view ${FUNCTION}() { return {content, sizeof(content) - 1}; }

}  // namespace ${NAMESPACE}
")
