"""A headless Chromium that shows the controller's page."""

import shutil
from collections.abc import Callable
from pathlib import Path
from typing import Any, TypeVar

from lab.site.waiting import wait_until

WIDTH, HEIGHT = 1280, 900
SCRIPT_SECONDS = 60
ARGUMENTS = ("--headless=new", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage", "--hide-scrollbars",
             "--no-first-run", "--disable-background-networking", "--disable-component-update", "--lang=en")
T = TypeVar("T")


def why_missing() -> str | None:
    """What is missing on this machine for a browser, if something is."""
    missing = [program for program in ("chromium", "chromedriver") if shutil.which(program) is None]
    try:
        import selenium  # noqa: F401
    except ImportError:
        missing.append("python3-selenium")
    return f"{' and '.join(missing)} missing; scripts/install-packages test installs them" if missing else None


class Browser:
    """Finds elements as a reader does, by what is written on them. Accepts any certificate."""

    def __init__(self, profile: Path) -> None:
        from selenium import webdriver
        from selenium.webdriver.chrome.service import Service

        options = webdriver.ChromeOptions()
        for each in (*ARGUMENTS, f"--user-data-dir={profile}"):
            options.add_argument(each)
        options.set_capability("acceptInsecureCerts", True)
        options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
        self.driver = webdriver.Chrome(options=options, service=Service(shutil.which("chromedriver")))
        self.driver.set_script_timeout(SCRIPT_SECONDS)
        self.resize(WIDTH, HEIGHT)

    def close(self) -> None:
        self.driver.quit()

    def resize(self, width: int, height: int) -> None:
        self.command("Emulation.setDeviceMetricsOverride", width=width, height=height, deviceScaleFactor=1,
                     mobile=False)

    def prefer(self, **features: str) -> None:
        """Media features such as prefers_color_scheme="dark"."""
        self.command("Emulation.setEmulatedMedia",
                     features=[{"name": name.replace("_", "-"), "value": value} for name, value in features.items()])

    def command(self, name: str, **parameters: Any) -> Any:
        """One of the DevTools protocol."""
        return self.driver.execute_cdp_cmd(name, parameters)

    def run(self, script: str, *arguments: Any) -> Any:
        return self.driver.execute_script(script, *arguments)

    def run_async(self, script: str, *arguments: Any) -> Any:
        """The body of an async function; returns what it returns."""
        answer = self.driver.execute_async_script(
            "const done = arguments[arguments.length - 1]; const given = [...arguments].slice(0, -1);"
            f"(async (...given) => {{{script}}})(...given).then((made) => done([made, null]),"
            "(error) => done([null, String(error)]));", *arguments)
        assert answer[1] is None, answer[1]
        return answer[0]

    def wait(self, effect: Callable[[], T], what: str, seconds: float = 20) -> T:
        def attempt() -> T | None:
            from selenium.common.exceptions import NoSuchElementException, StaleElementReferenceException
            try:
                return effect()
            except (NoSuchElementException, StaleElementReferenceException):
                return None

        return wait_until(attempt, what, seconds)

    def wait_for_text(self, text: str, selector: str = "body", seconds: float = 20) -> None:
        self.wait(lambda: text in self.text(selector), f"the page says \"{text}\"", seconds)

    def text(self, selector: str = "main") -> str:
        return self.run("return document.querySelector(arguments[0])?.innerText ?? ''", selector)

    def find(self, selector: str, seconds: float = 20) -> Any:
        return self.wait(lambda: self.driver.find_element("css selector", selector), f"the page has {selector}",
                         seconds)

    def button(self, title: str) -> Any:
        """The button with this text or label."""
        return self.wait(lambda: self.driver.find_element(
            "xpath", f"//button[normalize-space(.)='{title}' or @aria-label='{title}']"), f"the button {title}")

    def field(self, label: str, within: str = "main") -> Any:
        """The field with this label."""
        return self.wait(lambda: self.run(
            "return [...document.querySelectorAll(arguments[0] + ' label')]"
            ".find((label) => label.firstChild.textContent === arguments[1])?.control", within, label),
            f"the field {label}")

    def fill(self, label: str, text: str, within: str = "main") -> None:
        field = self.field(label, within)
        field.clear()
        field.send_keys(text)

    def choose(self, label: str, title: str, within: str = "main") -> None:
        from selenium.webdriver.support.select import Select

        Select(self.field(label, within)).select_by_visible_text(title)

    def go(self, view: str) -> None:
        """Opens the view by its link."""
        link = self.driver.find_element("xpath", f"//nav//a[.='{view}']")
        self.wait(link.is_displayed, f"the link {view}")
        link.click()
        self.wait_for_text(view, "h1")

    def press(self, *keys: str) -> None:
        """Keys by name, such as "TAB", or characters, for what has the focus."""
        from selenium.webdriver.common.action_chains import ActionChains
        from selenium.webdriver.common.keys import Keys

        for key in keys:
            ActionChains(self.driver).send_keys(getattr(Keys, key, key)).perform()

    def problems(self) -> list[str]:
        """What the console has said since the last call."""
        return [entry["message"] for entry in self.driver.get_log("browser")]
