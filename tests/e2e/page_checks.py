"""What tests look at inside the page."""

from lab.site.browser import Browser

# Roles of elements that screen readers must have a name for.
NAMED_ROLES = {"button", "link", "textbox", "searchbox", "combobox", "spinbutton", "grid", "region", "search", "image"}
# The texts whose contrast with their ground is below 4.5, the least of WCAG 2.2, level AA.
POOR_CONTRAST = """
const channel = (value) => value <= .04045 ? value / 12.92 : ((value + .055) / 1.055) ** 2.4;
const canvas = new OffscreenCanvas(1, 1).getContext('2d', {willReadFrequently: true});
const rgb = (colour) => {
  canvas.clearRect(0, 0, 1, 1); canvas.fillStyle = colour; canvas.fillRect(0, 0, 1, 1);
  return [...canvas.getImageData(0, 0, 1, 1).data];
};
const light = (colour) => { const [r, g, b] = rgb(colour).map((each) => channel(each / 255));
                            return .2126 * r + .7152 * g + .0722 * b; };
const ground = (element) => { for (; element; element = element.parentElement) {
  const {backgroundColor} = getComputedStyle(element); if (rgb(backgroundColor)[3] === 255) return backgroundColor; } };
const walker = document.createTreeWalker(document.body, NodeFilter.SHOW_TEXT);
const poor = [];
while (walker.nextNode()) {
  const element = walker.currentNode.parentElement;
  const isText = walker.currentNode.data.trim() && element.checkVisibility();
  if (!isText || element.closest('svg, option, :disabled')) continue;
  const [one, other] = [light(getComputedStyle(element).color), light(ground(element))].sort((a, b) => b - a);
  if ((one + .05) / (other + .05) < 4.5) poor.push([element.textContent, (one + .05) / (other + .05)]);
}
return poor;
"""
# Types a filter and returns the milliseconds until its rows are painted.
FILTER = """
const [label, text, found] = given;
const labels = [...document.querySelectorAll('main label')];
const field = labels.find((each) => each.firstChild.textContent === label).control;
const start = performance.now();
field.value = text;
field.dispatchEvent(new Event('input', {bubbles: true}));
const window = document.querySelector('.window');
while (document.querySelector('.found').textContent !== found || window.getAttribute('aria-busy') === 'true') {
  if (performance.now() - start > 20_000) throw new Error(document.querySelector('.found').textContent);
  await new Promise(requestAnimationFrame);
}
await new Promise(requestAnimationFrame);
await new Promise(requestAnimationFrame);
return performance.now() - start;
"""
# Scrolls by four rows a frame. Returns the median time of a frame in milliseconds, the frames with rows that were not
# known yet, and the most rows that were in the document.
SCROLL = """
const window = document.querySelector('.window');
const times = [];
let unknown = 0;
let rows = 0;
for (let frame = 0; frame < 150; frame++) {
  const start = performance.now();
  window.scrollTop += 120;
  await new Promise(requestAnimationFrame);
  times.push(performance.now() - start);
  unknown += window.innerText.includes('…') ? 1 : 0;
  rows = Math.max(rows, window.querySelectorAll('tbody tr').length);
}
return [times.sort((one, other) => one - other)[75], unknown, rows];
"""


def check_view(page: Browser, width: int) -> None:
    """That the view fits the width, can be read, and has names and landmarks."""
    assert page.run("return document.documentElement.scrollWidth") <= width, page.text("h1")
    assert page.run(POOR_CONTRAST) == []
    nodes = page.command("Accessibility.getFullAXTree")["nodes"]
    roles = [(each["role"]["value"], each.get("name", {}).get("value")) for each in nodes if not each["ignored"]]
    assert [role for role, name in roles if role in NAMED_ROLES and not name] == [], page.text("h1")
    assert {"banner", "navigation", "main", "status"} <= {role for role, _ in roles}
