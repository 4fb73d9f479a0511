import pathlib
import unittest

import zentrix_report as z

GOLDEN = pathlib.Path(__file__).resolve().parent / ".." / ".." / "tests" / "golden"


def golden(name):
    return (GOLDEN / (name + ".html")).read_text(encoding="utf-8")


class ReadTest(unittest.TestCase):
    def test_golden_reports(self):
        five = ("Environment", "Power Supply", "Mass Storage", "System Board", "Network")
        for name, s in (("typical", "normal"), ("degraded", "error"), ("empty", "not-present")):
            self.assertEqual([(c, s) for c in five] + [("System Event Log", "normal")],
                             z.categories(z.read(golden(name))), name)
        info, health = z.read(golden("degraded")).pages
        storage = health.sections[2].children
        self.assertEqual(("System Information", ("Model", "ORVANA RS2400 G3"), ["warning"] * 3 + ["error"] * 2),
                         (info.title, info.sections[0].children[0].fields[0], [s.status for s in storage]))
        self.assertEqual(z.Row([("normal", "Installed"), ("warning", "Warning")], ["7.31.3"]),
                         storage[1].children[0].rows[0])
        self.assertEqual(z.Row([("warning", "Minor")], ["0x50021", " <no date/no time> ",
                                                        "BATT 3.0V: voltage low, replace the CMOS battery"]),
                         health.sections[5].children[0].rows[-1])
        # A row class the reader does not know is read as not present.
        unknown = z.read(golden("degraded").replace('\n<td class="status-warning', '\n<td class="', 1)).pages[1]
        self.assertEqual(("not-present", "Warning"), unknown.sections[2].children[1].children[0].rows[0].statuses[1])

    def test_what_is_not_a_report_is_refused(self):
        text = golden("degraded")
        for damage, spoiled in (
                ("cut short", text[:-1]), ("text after the end", text + "\n"),
                ("unknown section class", text.replace(' status-error">Environment', ' status-bad">Environment')),
                ("unknown row class", text.replace('"status-normal icon', '"status-ok icon', 1)),
                ("a status icon missing", text.replace(".status-warning{", ".status-warn{")),
                ("a cell not closed", text.replace("</td>", "", 1)),
                ("a row not closed", text.replace("\n          </tr>\n          <tr>", "\n          <tr>", 1)),
                ("no pages", text[:text.index("\n  <button")] + text[text.index("\n  <script>"):]),
                ("sections nested too deeply", text.replace('"content-main">', '"content-main">' + (
                    z.SECTION + '">x</button>\n    <div class="content">') * 20 + "\n    </div>" * 20, 1)),
                ("another page", "<!DOCTYPE html>\n<html><body>Zentrix</body></html>")):
            with self.assertRaises(z.ReportError, msg=damage):
                z.read(spoiled)
        self.assertRaises(z.ReportError, z.categories, z.read(text.replace(">System Health<", ">Health<")))


if __name__ == "__main__":
    unittest.main()
