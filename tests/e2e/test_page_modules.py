"""Modules of the operators' page, called in a browser."""

import pytest

from conftest import checked_lab
from lab.site.browser import why_missing
from lab.site.http_api import HttpApi

pytestmark = pytest.mark.skipif(why_missing() is not None, reason=why_missing() or "")


@pytest.fixture(scope="module")
def page(browser, programs, request):
    """The page before anybody has signed in."""
    failed = request.session.testsfailed
    with checked_lab(programs, lambda: request.session.testsfailed > failed) as lab:
        api = HttpApi(lab.directory, lab.authority)
        lab.controller.start(*api.options)
        browser.driver.get(f"https://127.0.0.1:{api.port}/")
        browser.wait(lambda: browser.text("h1") == "Sign in", "the page")
        yield browser


def test_what_is_warned_of(page):
    warnings = page.run_async("""
        const {warningsOf} = await import('/warnings.js');
        const now = Date.parse('2026-01-01T00:00:00Z');
        const ap = (name, state, end, enrolment = null) =>
          ({ap: '02:00:00:00:10:00', name, state, certificate_expires: end, enrolment});
        const store = {fault: '', waiting: 1001, keeps: true, keeps_pmks: true, history_lost: 0, changes_refused: 0};
        const stats = {certificate_expires: '2026-03-01T00:00:00Z', http_certificate_expires: 'unknown', malformed: 2,
                       store};
        const well = {...stats, malformed: 0, store: {...store, waiting: 1000}};
        return [warningsOf([ap('hall', 'down', null), ap('yard', 'up', '2026-01-03T00:00:00Z'),
                            ap('roof', 'up', '2026-01-20T00:00:00Z'), ap('old', 'up', '2025-12-31T00:00:00Z')],
                           stats, now),
                warningsOf([ap('roof', 'up', '2026-02-01T00:00:00Z'), ap('stolen', 'down', null, 'revoked')], well, now),
                warningsOf([], {...well, store: {...store, fault: 'disk full'}}, now),
                warningsOf([], {...well, http_certificate_expires: '2026-01-03T00:00:00Z'}, now)]""")
    assert [each["level"] for each in warnings[0]] == ["bad", "bad", "bad", "warn", "warn", "warn"]
    assert [each["text"] for each in warnings[0]] == [
        "1 access point has no tunnel: hall.", "The certificate of yard ends on 3 Jan 2026, in 2 days.",
        "The certificate of old ended on 31 Dec 2025.", "The certificate of roof ends on 20 Jan 2026, in 19 days.",
        "The store lags: 1,001 changes wait to be stored.", "Lost since the start: 2 malformed records."]
    assert warnings[1] == []
    assert [each["text"] for each in warnings[2]] == [
        "The store cannot be written: disk full. The controller serves from memory; 1,001 changes wait to be stored."]
    assert [each["text"] for each in warnings[3]] == ["The certificate of this page ends on 3 Jan 2026, in 2 days."]


def test_history_that_is_read_again_has_no_gap(page):
    joined = page.run_async("""
        const {joinedHistory} = await import('/life.js');
        const entries = (...numbers) => numbers.map((number) => ({number}));
        return [[[5, 4], [4, 3, 2]], [[9, 8], [4, 3]], [[], [4]], [[5], []]].map(([newest, before]) =>
          joinedHistory(entries(...newest), entries(...before)).map(({number}) => number));""")
    assert joined == [[5, 4, 3, 2], [9, 8], [], [5]]


def test_rows_are_read_from_the_nearer_end(page):
    """Of a listing of 10,000 rows: the last ones, those before them, and the first again, and what was asked for it."""
    asked, rows = page.run_async("""
        const {CursorRows} = await import('/cursor_rows.js');
        const asked = [];
        const number = 10000;
        window.fetch = async (path) => {
          const words = new URLSearchParams(path.split('?')[1]);
          const isBack = words.get('order') === 'descending';
          const first = Number(words.get('cursor') ?? 0);
          asked.push([isBack, first]);
          const items = Array.from({length: 200}, (_, at) => isBack ? number - 1 - first - at : first + at);
          const next = first + 200 < number ? String(first + 200) : null;
          return new Response(JSON.stringify({items, next}), {headers: {'Content-Type': 'application/json'}});
        };
        const quiet = () => new Promise((done) => setTimeout(done, 20));
        const rows = new CursorRows('/clients', {changed() {}, failed(error) { throw error; }});
        rows.expected = number;
        rows.filter({});
        await quiet();
        rows.want(9980, 9999);
        await quiet();
        const seen = [rows.at(0), rows.at(199), rows.at(9999), rows.at(9900), rows.count];
        rows.want(9650, 9680);
        await quiet();
        seen.push(rows.at(9650), rows.at(9799));
        rows.refresh();
        await quiet();
        seen.push(rows.at(9650), rows.isComplete);
        return [asked, seen];""")
    assert rows == [0, 199, 9999, 9900, 10000, 9650, 9799, 9650, False]
    assert asked[:3] == [[False, 0], [True, 0], [True, 200]]
    assert all(back for back, _ in asked[1:])


def test_stays_of_a_life(page):
    stays = page.run_async("""
        const {staysOf} = await import('/life.js');
        const at = (second) => new Date(1000 * second).toISOString();
        const entry = (event, ap, second) => ({event, ap, bssid: ap, at: at(second)});
        return staysOf([entry('associated', 'a', 1), entry('address', 'a', 2), entry('roamed', 'b', 5),
                        entry('left', 'b', 8), entry('associated', 'a', 20)], given[0], 30000)
            .map(({ap, from, to}) => [ap, from / 1000, to / 1000]);""", True)
    assert stays == [["a", 1, 5], ["b", 5, 8], ["a", 20, 30]]
