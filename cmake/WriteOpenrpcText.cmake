# Writes IN, a text, as the C string openrpc_text of NAMESPACE into OUT.
file(READ ${IN} text)
file(WRITE ${OUT} "namespace ${NAMESPACE} {\nextern const char openrpc_text[];\nconst char openrpc_text[] = R\"openrpc(${text})openrpc\";\n}  // namespace ${NAMESPACE}\n")
