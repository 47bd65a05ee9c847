"""The generator's checks of a table: each mistake a TableError naming its file and line, and the
protocol's own table read as it stands. Run by CTest (Protocol.TableChecks)."""

import os
import tempfile
import unittest

from kzgen import cli, emit_client, table, validate
from kzgen.model import TableError

HERE = os.path.dirname(os.path.abspath(__file__))
FORMS = """form strz - QString: text
form strlist - QStringList: texts
form flag8 1 bool: a flag
form i32 4 int: a number
"""
GOOD = """family Demo Demo
  doc A family.

message DeleteUser 0x001B: Deletes users.
  request lanDeleteUser: names:strlist
    doc Asks to delete users.
    called for a request to delete users
  reply lanDeleteUserResponse: names:strlist ok:flag8@0
    doc Answers a deletion.
    called for a deletion reply
"""


def load(family_text):
    d = tempfile.mkdtemp()
    with open(os.path.join(d, "index.table"), "w") as f:
        f.write("forms forms.table\nfamily demo.table\n")
    with open(os.path.join(d, "forms.table"), "w") as f:
        f.write(FORMS)
    with open(os.path.join(d, "demo.table"), "w") as f:
        f.write(family_text)
    return validate.validate(table.load(os.path.join(d, "index.table")))


class TableChecks(unittest.TestCase):
    def rejects(self, text, line, words):
        with self.assertRaises(TableError) as e:
            load(text)
        self.assertEqual(e.exception.where.line, line, str(e.exception))
        self.assertTrue(e.exception.where.file.endswith("demo.table"), str(e.exception))
        self.assertIn(words, e.exception.message)

    def test_a_good_table_reads(self):
        d = load(GOOD).message("DeleteUser").direction("reply")
        self.assertEqual([f.name for f in d.api_fields()], ["ok", "names"])
        self.assertEqual(d.setter, "setLanDeleteUserResultCB")
        self.assertEqual(d.flag, 1)

    def test_unknown_form(self):
        self.rejects(GOOD.replace("names:strlist ok", "names:strlistt ok"), 8, "unknown form")

    def test_duplicate_code(self):
        second = GOOD.split("\n", 3)[3].replace("DeleteUser", "DeleteMac")
        self.rejects(GOOD + "\n" + second, 12, "taken twice")

    def test_missing_direction(self):
        self.rejects(GOOD + "\nmessage Lonely 0x0030: Nothing.\n", 12, "no direction")

    def test_wrong_order(self):
        self.rejects(GOOD.replace("ok:flag8@0", "ok:flag8@2"), 8, "wrong order")
        self.rejects(GOOD.replace("names:strlist ok:flag8@0", "names:strlist@0 ok:flag8@0"), 8,
                     "wrong order")

    def test_two_directions_decoding_one_flag(self):
        self.rejects(GOOD.replace("lanDeleteUserResponse:", "lanDeleteUserResponse flag 0:"), 8,
                     "decoded by its request")

    def test_a_regular_message_cannot_use_a_description_only_form(self):
        self.rejects(GOOD.replace("request lanDeleteUser: names:strlist",
                                  "request lanDeleteUser: names:{a:strz}"), 5, "hand-written")


class ClientRequests(unittest.TestCase):
    def test_a_request_with_a_reply_gets_a_method_and_its_values(self):
        p = load(GOOD)
        header = emit_client.header(p)
        self.assertIn("KZReplyOf<DeleteUserReply>* deleteUser(const QStringList& names);", header)
        self.assertIn("bool ok{};", header)
        self.assertLess(header.index("bool ok{};"), header.index("QStringList names;"))
        self.assertIn("KZ_CLIENT_REPLY(DeleteUserReply, 0x001B, deleteUserResult)",
                      emit_client.replies(p))

    def test_a_message_without_a_reply_gets_none(self):
        p = load(GOOD.split("  reply")[0])
        self.assertNotIn("deleteUser", emit_client.header(p))

    def test_a_method_may_not_take_a_name_the_client_has(self):
        with self.assertRaises(TableError) as e:
            emit_client.header(load(GOOD.replace("lanDeleteUser:", "lanLogout:")))
        self.assertIn("the client already uses", e.exception.message)


class TheProtocol(unittest.TestCase):
    def test_reads_and_covers_every_code_once(self):
        p = cli.load(os.path.join(HERE, "index.table"))
        self.assertEqual(len(p.messages), len({m.code for m in p.messages}))
        self.assertEqual(len(p.directions()), len({d.setter for d in p.directions()}))


class TheDissector(unittest.TestCase):
    """The display filter fields of kz.lua: one per field path, typed by what it holds."""

    def test_field_paths_and_their_kinds(self):
        from kzgen import emit_lua

        p = cli.load(os.path.join(HERE, "index.table"))
        paths = emit_lua.Paths(p)
        for d in p.directions():
            paths.fields("", d.fields, frozenset())
        rows = [
            ("name", {"text"}),                      # AddUser's request
            ("user.name", {"text"}),                 # a field holding a record: its fields under it
            ("user.permission", {"int"}),
            ("user.flag", {"bool"}),
            ("field.flag", {"bool"}),                # named like the header's kz.flag
            ("groups.groups.users.name", {"text"}),  # lists of groups: entries add no step
            ("names.item", {"text"}),                # a strlist's texts
            ("user.groupPermission.value.item", {"text"}),
        ]
        for path, kinds in rows:
            self.assertEqual(paths.kinds.get(path), kinds, path)
        self.assertNotIn("flag", paths.kinds)

    def test_every_code_is_named(self):
        from kzgen import emit_lua

        p = cli.load(os.path.join(HERE, "index.table"))
        lua = emit_lua.emit(p)
        for m in p.messages:
            self.assertIn('[0x%04X] = {name="%s", ' % (m.code, m.name), lua)


if __name__ == "__main__":
    unittest.main()
