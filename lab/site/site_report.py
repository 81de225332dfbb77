"""The text output of a site's run."""

from pathlib import Path

from rich.console import Console

from lab.site.laboratory import Laboratory
from lab.site.plain_text import plain
from lab.site.site_run import Plan, Site
from lab.site.site_screen import SiteScreen, describe_counters


def run_site(plan: Plan, programs: Path, console: Console) -> bool:
    """Returns whether all agree at the end."""
    console.print(f"{plan.access_points} access points, each with a [bold]client_mgr[/] and its other programs, one "
                  f"[cyan]controller[/],\nand {plan.stations} stations that associate, roam, sleep and leave for "
                  f"{plan.seconds} seconds, played at {plan.speed:g} times the speed.\n", soft_wrap=True)
    with Laboratory(programs) as lab:
        site = Site(lab, plan)
        console.print(f"The seed of this run is {site.seed}.\n")
        with SiteScreen(console, site) as screen:
            site.play(screen.update)
        counters, known = site.state()
        stations = {access_point.name: known[access_point.mac]["stations"] for access_point in lab.access_points}
        differences = site.find_differences()
    console.print(f"\n[bold]What happened[/]\n\n  {describe_counters(counters)}\n"
                  f"  stations at the end: {', '.join(f'{number} on {name}' for name, number in stations.items())}\n",
                  soft_wrap=True)
    show_verdict(console, differences)
    show_logs(console, lab)
    return not differences


def show_verdict(console: Console, differences: list[str]) -> None:
    if not differences:
        console.print("The controller, the tables of all client_mgr and the radios [bold green]agree[/] on every "
                      "station.", soft_wrap=True)
        return
    console.print(f"The controller, the tables of client_mgr and the radios [bold red]do not agree[/], in "
                  f"{len(differences)} points:\n")
    for difference in differences:
        console.print(f"  {plain(difference)}", markup=False, soft_wrap=True)


def show_logs(console: Console, lab: Laboratory) -> None:
    console.print("\nMore in these files:\n")
    for access_point in lab.access_points:
        console.print(f"  {access_point.name + ': log of client_mgr':32} {plain(access_point.log)}", markup=False,
                      soft_wrap=True)
    console.print(f"  {'the controller':32} {plain(lab.controller.output.file)}", markup=False, soft_wrap=True)
