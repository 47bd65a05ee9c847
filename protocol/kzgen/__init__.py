"""kzgen: reads the protocol table (protocol/*.table) into a model and writes from it the
declarations of the public headers, the codecs of the regular messages, the method and callback
tables, the connection signals, the fuzz sinks' field visitors, the examples program, the
reference page and protocol.json.

    model.py     the model: forms, fields, directions, messages, records, families
    table.py     the parser of the table format (see protocol/README.md)
    validate.py  strict checks, each failure a TableError with file:line
    cpp.py       C++ helpers: types, declarations laid out as clang-format does
    emit_*.py    one module per output
"""
