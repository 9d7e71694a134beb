"""Tests what makes and what checks the documentation site, without making it. Works in the repository's folder."""

import json
import os
import re
import sys
import tempfile
import unittest

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path[:0] = [HERE, os.path.join(HERE, "..", "site")]
import check_site
import check_words
import group_headers
import measured
import pages


class Pages(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.site = pages.Site()

    def shown(self, text, source="docs/live.md"):
        return self.site.prose(source, text)

    def test_every_page_can_be_made(self):
        for path in pages.PAGES:
            if path != pages.MEASURED:
                self.assertIn("{#" + pages.page_label(path) + "}", self.site.page(path))

    def test_a_link_leads_to_a_page_or_its_heading(self):
        self.assertEqual(self.shown("[g](guide.md)"), "[g](@ref page_guide)")
        self.assertEqual(self.shown("[step\n8](guide.md#8-a-campaign)"), "[step 8](@ref page_guide_8_a_campaign)")
        self.assertEqual(self.shown("[log](#the-log)"), "[log](@ref page_live_the_log)")

    def test_a_link_leads_to_a_header_a_folder_or_an_example(self):
        self.assertEqual(self.shown("[r](../stream/reader.hpp)"), "[r](@ref stream/reader.hpp)")
        self.assertEqual(self.shown("[c](../centroiders/)"), "[c](@ref centroiders)")
        self.assertEqual(self.shown("[e](../examples/smallest_host.cpp)"), "[e](@ref example_smallest_host_cpp)")
        self.assertEqual(self.shown("[e](../examples/python)"), "[e](@ref page_examples)")

    def test_a_link_to_what_the_site_has_not_is_its_words(self):
        self.assertEqual(self.shown("see [a test](../centroiders/test/score_test.cpp)."), "see a test.")
        self.assertEqual(self.shown("[checks](../common/checks/checks.hpp)"), "checks")

    def test_a_link_to_nothing_is_an_error(self):
        with self.assertRaisesRegex(ValueError, "docs/live.md: nowhere.md leads to a file that is not there"):
            self.shown("[n](nowhere.md)")
        with self.assertRaisesRegex(ValueError, "guide.md#12-more leads to a heading that is not there"):
            self.shown("[n](guide.md#12-more)")

    def test_code_is_code(self):
        for same in ("`a_b * c`", "`[x](y.md)`", "`<!-- dot: FILE -->`"):
            self.assertEqual(self.shown(same), same)
        self.assertEqual(self.shown(r"`-R 'A\|B' --x`"), r"<code>-R 'A\|B' \--x</code>")

    def test_a_guide_is_a_page_for_each_step(self):
        made = pages.steps(self.site.page(pages.IN_STEPS))
        self.assertEqual(len(made), 1 + len(re.findall("^## ", self.site.texts[pages.IN_STEPS], re.MULTILINE)))
        self.assertIn("@subpage page_guide_8_a_campaign", made[0])
        self.assertTrue(made[1].startswith("# 1. A sensor out of nothing {#page_guide_1_a_sensor_out_of_nothing}"))
        self.assertIn("(@ref page_guide_2_a_frame_measured)", made[1])


class Headers(unittest.TestCase):
    def test_all_are_in_the_group_of_their_folder_and_keep_their_lines(self):
        for path in pages.Site().headers:
            text = pages.read(path)
            grouped = group_headers.grouped(text, group_headers.room_of(path))
            self.assertEqual(grouped.count("\n"), text.count("\n"), path)
            self.assertEqual(grouped.count("@begin_group"), grouped.count("@end_group"), path)
            self.assertIn("@of_group{" + path.split("/")[0] + "}", grouped, path)

    def test_the_repository_may_lie_in_a_folder_of_a_rooms_name(self):
        self.assertEqual(group_headers.room_of("/home/stream/quen/detector/maps.hpp"), "detector")

    def test_each_folder_has_its_group(self):
        groups = re.findall(r"@defgroup (\w+)", pages.read("docs/site/groups.dox"))
        self.assertEqual(sorted(groups), sorted(group_headers.ROOMS))
        self.assertEqual({path.split("/")[0] for path in pages.Site().headers}, set(groups))


class Links(unittest.TestCase):
    def faults(self, **files):
        with tempfile.TemporaryDirectory() as folder:
            for name, text in files.items():
                path = os.path.join(folder, *name.split("__"))
                path = re.sub(r"_(html|css|js|png)$", r".\1", path)
                os.makedirs(os.path.dirname(path), exist_ok=True)
                with open(path, "w", encoding="utf-8") as file:
                    file.write(text)
            site = check_site.Site(folder)
            site.check_all()
            return site.faults

    def test_good_ones(self):
        self.assertEqual(self.faults(a_html='<p id="x"><a href="b.html#y">b</a> <a href="https://doi.org/1">paper</a>',
                                     b_html='<a id="y" href="a.html#x">a</a><a href="#y">here</a><img src="p.png">',
                                     p_png="", s_css="a { background: url('p.png'), url(data:image/png;base64,0) }",
                                     search__all_js="['../a.html#x',1]"), [])

    def test_each_kind_of_bad_one(self):
        for files, words in [
                ({"a_html": '<a href="b.html">'}, "b.html leads to a file that is not there"),
                ({"a_html": '<a href="#x">'}, "#x leads to a place that is not there"),
                ({"a_html": '<img src="p.png">'}, "p.png leads to a file that is not there"),
                ({"a_html": '<script src="https://cdn.example/x.js"></script>'}, "is loaded from elsewhere"),
                ({"a_html": '<link href="//cdn.example/x.css">'}, "is loaded from elsewhere"),
                ({"s_css": "@import 'https://fonts.example/f.css';"}, "is loaded from elsewhere"),
                ({"a_html": "", "search__all_js": "['../a.html#x',1]"}, "../a.html#x leads to a place that is not there"),
                ({"a_html": "", "a_js": '[ "n", "b.html#x", null ]'}, "b.html#x leads to a file that is not there")]:
            with self.subTest(files):
                faults = self.faults(**files)
                self.assertEqual(len(faults), 1, faults)
                self.assertIn(words, faults[0])


class Words(unittest.TestCase):
    def faults(self, text, shown):
        return list(check_words.faults_of("a.md", text, [check_words.Words(shown)]))

    def test_what_is_there(self):
        self.assertEqual(self.faults("`a b` c\n\n```cpp\nint  x;\n```\n",
                                     '<p><code>a\nb</code> c</p><div class="fragment"><div class="line">int x;</div></div>'), [])

    def test_what_is_not(self):
        self.assertIn("no such code: a --b", self.faults("`a --b`", "<code>a –b</code>")[0])
        self.assertIn("no such block: x = 1", self.faults("```\nx = 1\n```\n", "<pre>x = 2</pre>")[0])
        self.assertIn("shows Markdown", self.faults("[a](b.md)", "<p>[a](b.md)</p>")[0])


class Measured(unittest.TestCase):
    def shown(self, show, text):
        with tempfile.NamedTemporaryFile("w", suffix=".file") as file:
            file.write(text)
            file.flush()
            return measured.shown(file.name, "the command", show)

    def test_what_was_not_measured_names_its_command(self):
        text = measured.shown("/nonexistent/results", "scripts/bench", None)
        self.assertIn("Not measured where this page was made", text)
        self.assertIn("scripts/bench", text)

    def test_figures_are_those_of_the_file(self):
        found = {"line_total": 8, "line_covered": 6, "branch_total": 0, "branch_covered": 0}
        measured.compiler_of, kept = (lambda build: "GNU 1"), measured.compiler_of
        try:
            text = self.shown(measured.coverage, json.dumps({**found, "files": [{**found, "filename": "a.cpp"}]}))
            self.assertIn("| `a.cpp` | 6 of 8, 75.0 % | 0 of 0 |", text)
            text = self.shown(measured.tests, '<testsuite><testcase name="A.b" time="30" status="run"/>'
                                              '<testcase name="A.c" time="30" status="fail"/></testsuite>')
            self.assertIn("2 tests, 1.0 minutes", text)
            self.assertIn("| passed | 1 |", text)
            self.assertIn("- failed: `A.c`", text)
        finally:
            measured.compiler_of = kept

    def test_a_file_of_another_kind_is_refused(self):
        for show in (measured.speed, measured.scores, measured.ratios, measured.coverage):
            with self.assertRaisesRegex(ValueError, "is not what this leaves: the command"):
                self.shown(show, "[1]")
        with self.assertRaisesRegex(ValueError, "is not what this leaves: the command"):
            self.shown(measured.tests, "{}")


if __name__ == "__main__":
    unittest.main()
