"""Reads a Zentrix report back into its structure: pages, sections with their
titles and statuses, name/value panels and status tables with their rows.

The reader accepts exactly the text Zentrix writes and nothing else, so a
truncated, edited or foreign file raises ReportError instead of being read
half. Zentrix does not escape the texts it inserts; a text therefore ends
where the fragment that closes it begins. A text holding a line break
followed by a tag is taken for a missing closer, so a report whose texts
contain its own markup is refused rather than misread.
"""

import collections
import re

# Status names, mildest first; they are the CSS class suffixes of the report.
STATUSES = ("normal", "not-present", "warning", "error")

Report = collections.namedtuple("Report", "title timestamp style pages")
Page = collections.namedtuple("Page", "title sections")
Section = collections.namedtuple("Section", "title status children")
Panel = collections.namedtuple("Panel", "fields")  # [(name, value)]
Table = collections.namedtuple("Table", "columns rows")
# statuses: [(status, text)]; more than one when a row carries a second
# status cell (the RAID software row).
Row = collections.namedtuple("Row", "statuses cells")

HEAD = ('<!DOCTYPE html>\n<html>\n\n<head>\n'
        '  <meta name="viewport" content="width=device-width, initial-scale=1">\n  <style>\n    ')
BODY = '\n  </style>\n</head>\n\n<body>\n  <div class="title-app">\n    <h2>'
TAIL = '\n  </script>\n</body>\n\n</html>'
PAGE = '\n  <button type="button" class="title-text title-line">'
SECTION = '\n    <button type="button" class="collapsible title-text'
PANEL = '\n      <div class="status-table panel-body">'
FIELD = '\n        <div class="row">\n          <div class="title">'
TABLE = '\n      <table class="data-table component-table">\n        <thead>\n          <tr>'
BODY_ROWS = '\n          </tr>\n        </thead>\n        <tbody>'
ROW = '\n          <tr>\n            <td class="'
CELL = '\n            <td>'

# A section without a status class was given "not present" or a code the
# report cannot show; both are drawn without an icon.
SECTION_CLASSES = {"": "not-present", " status-normal": "normal",
                   " status-warning": "warning", " status-error": "error"}
ROW_CLASSES = {"status-" + s: s for s in STATUSES}
# The injected second cell of the RAID row has no class for unknown codes.
SECOND_CELL_CLASSES = dict(ROW_CLASSES, **{"": "not-present"})

ICON_RULE = re.compile(r"\.status-(%s)\{background-image:url\(data:image/png;base64,[A-Za-z0-9+/]+=*\)"
                       % "|".join(STATUSES))


MARKUP_IN_TEXT = re.compile(r"\n *<")
# Reports nest two levels; a file nested far deeper is no report.
MAX_DEPTH = 16


class ReportError(ValueError):
    """The text is not a report as Zentrix writes it."""


class _Cursor:
    def __init__(self, text):
        self.source, self.pos = text, 0

    def take(self, literal):
        if self.source.startswith(literal, self.pos):
            self.pos += len(literal)
            return True
        return False

    def expect(self, literal):
        if not self.take(literal):
            self.fail("expected %r" % literal.strip()[:40])

    def until(self, literal):
        end = self.source.find(literal, self.pos)
        if end < 0:
            self.fail("%r never comes" % literal.strip()[:40])
        value, self.pos = self.source[self.pos:end], end + len(literal)
        return value

    def text(self, literal):
        value = self.until(literal)
        if MARKUP_IN_TEXT.search(value):
            self.fail("markup inside a text: %r" % value[:40])
        return value

    def status(self, literal, classes):
        name = self.until(literal)
        if name not in classes:
            self.fail("unknown status class %r" % name[:40])
        return classes[name]

    def fail(self, what):
        raise ReportError("line %d: %s" % (self.source.count("\n", 0, self.pos) + 1, what))


def read(text):
    """Returns the Report that TEXT holds; raises ReportError."""
    c = _Cursor(text)
    c.expect(HEAD)
    style = c.until(BODY)
    if sorted(set(ICON_RULE.findall(style))) != sorted(STATUSES):
        c.fail("the style sheet lacks a status icon")
    title = c.text("</h2>\n    <h3>")
    timestamp = c.text("</h3>\n  </div>")
    pages = []
    while c.take(PAGE):
        page_title = c.text('</button>\n  <div class="content-main">')
        pages.append(Page(page_title, _children(c, "\n  </div>")))
    c.expect("\n  <script>\n    ")
    c.until(TAIL)
    if c.pos != len(text):
        c.fail("text after the end of the document")
    if not pages:
        c.fail("no pages")
    return Report(title, timestamp, style, pages)


def read_file(path):
    try:
        with open(path, encoding="utf-8") as report:
            return read(report.read())
    except (OSError, UnicodeDecodeError) as error:
        raise ReportError(str(error)) from None


def _children(c, closer, depth=0):
    if depth > MAX_DEPTH:
        c.fail("sections nested too deeply")
    items = []
    while not c.take(closer):
        if c.take(SECTION):
            status = c.status('">', SECTION_CLASSES)
            title = c.text('</button>\n    <div class="content">')
            items.append(Section(title, status, _children(c, "\n    </div>", depth + 1)))
        elif c.take(PANEL):
            fields = []
            while c.take(FIELD):
                name = c.text('</div>\n          <div class="value">')
                fields.append((name, c.text("</div>\n        </div>")))
            c.expect("\n      </div>")
            items.append(Panel(fields))
        elif c.take(TABLE):
            items.append(_table(c))
        else:
            c.fail("expected a section, panel or table")
    return items


def _table(c):
    columns = []
    while c.take("\n            <th>"):
        columns.append(c.text("</th>"))
    c.expect(BODY_ROWS)
    rows = []
    while c.take(ROW):
        statuses = [(c.status(' icon status">', ROW_CLASSES), c.text("</td>"))]
        while c.take('\n<td class="'):
            statuses.append((c.status(' icon status">', SECOND_CELL_CLASSES), c.text("</td>")))
        cells = []
        while c.take(CELL):
            cells.append(c.text("</td>"))
        c.expect("\n          </tr>")
        rows.append(Row(statuses, cells))
    c.expect("\n        </tbody>\n      </table>")
    return Table(columns, rows)


def worst(statuses):
    """The worst of STATUSES by the order of STATUSES; None for none."""
    return max(statuses, key=STATUSES.index, default=None)


def categories(report):
    """The health page's top-level sections as (title, status) pairs."""
    health = [page for page in report.pages if page.title == "System Health"]
    if len(health) != 1:
        raise ReportError("%d health pages" % len(health))
    return [(s.title, s.status) for s in health[0].sections if isinstance(s, Section)]
