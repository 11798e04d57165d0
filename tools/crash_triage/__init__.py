"""Groups the crashes that a collector received by where they happened, and shows the groups.

From top to bottom: command_line (options, one run), page and report (what a run gives out), groups
(what a group's crashes have in common), naming and signature (from addresses to a signature),
reading (documents and dumps to facts), records (the collector's lines), state (what earlier runs
read).
"""
