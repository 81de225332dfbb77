"""The tests that need a bridge with VLAN filtering, which many a container's kernel lacks, on the machine's bridge."""

import subprocess
import sys
import xml.etree.ElementTree as ElementTree
from pathlib import Path

END_TO_END = Path(__file__).parents[1] / "e2e"


def test_port_enters_the_clients_vlan(programs: Path, tmp_path: Path) -> None:
    report = tmp_path / "report.xml"
    done = subprocess.run([programs / "port_test", "--gtest_filter=kxbr_api_vlan.*", f"--gtest_output=xml:{report}"],
                          check=False)
    assert done.returncode == 0
    check_that_cases_ran(report)


def test_daemon_enters_the_clients_vlan(programs: Path, tmp_path: Path) -> None:
    report = tmp_path / "report.xml"
    done = subprocess.run([sys.executable, "-B", "-m", "pytest", "-q", "-p", "no:cacheprovider", "-k", "vlan",
                           f"--bin={programs}", f"--junitxml={report}", END_TO_END / "test_kernel.py"], check=False)
    assert done.returncode == 0
    check_that_cases_ran(report)


def check_that_cases_ran(report: Path) -> None:
    cases = list(ElementTree.parse(report).getroot().iter("testcase"))
    assert cases
    assert not [case.get("name") for case in cases if case.find("skipped") is not None]
