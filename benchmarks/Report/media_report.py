"""Holds the figures of `playout bench` against those of the plain program on FFmpeg's libraries and against what
is required, as one table: scripts/media-bench runs all three.

Reads straight-CLIP.json and bench-CLIP.json in a directory, and for what both programs were run in turn, several
times, NAME-N-straight-CLIP.json with NAME-N-bench-CLIP.json, where all turns of a NAME run the same cases. Prints the table,
and writes media-report.json and media-report.md there. Ends with 1 when a requirement is missed.
"""

import argparse
import json
import pathlib
import statistics
import sys

OK, MISSED, APART = "ok", "MISSED", "-"

# Missed, and out of reach on the machine: what the plain program does for it alone takes longer.
BEYOND = "beyond"

# Beside its budget a track of 1080 lines may take this much for what FFmpeg keeps of its own (docs/playback.md).
OVERHEAD_MIB = 32

# The process itself, the program and the libraries, before a recording is played.
PROCESS_MIB = 28

# The most that a track's budget is, when nobody says otherwise (docs/playback.md).
MOST_USUAL_MIB = 1280

# By which the speed that the player says it holds may differ from that at which pictures came on show.
SPEED_TOLERANCE = 0.05

FORWARD, BACKWARD = ("play:1", "play:2", "play:4", "play:1/2"), ("play:-1", "play:-2", "play:-1/2")


def by_case(bench):
    return {result["case"]: result for result in (bench or {"results": []})["results"]}


# What stands for several turns: of what varies with the machine the median, of the rest what is worst. Figures that no
# row asks for in turns are left out.
OF_TURNS = {
    **dict.fromkeys(("picturesPerSecond", "cpuMsPerPicture", "p50Ms", "p95Ms"), statistics.median),
    **dict.fromkeys(("rightPercent", "hasBarCode", "atBeginMiB", "budgetMiB", "groupMiB"), min),
    **dict.fromkeys(("unreadPictures", "peakMiB", "bytesReadPerPicture", "gapMs", "wrong"), max),
}


def merged(runs):
    """One result of those that a case had in all turns. A turn that failed, or is not there, fails the case."""
    failed = [run for run in runs if "figures" not in run]
    if failed:
        return failed[0]
    figures = [run["figures"] for run in runs]
    return {"figures": {name: of([each[name] for each in figures]) for name, of in OF_TURNS.items()
                        if all(name in each for each in figures)}}


class Clip:
    """The figures of one clip. `straight` and `bench` are the programs' output, `turns` holds for each name the turns as
    pairs of the same."""

    def __init__(self, name, straight, bench, turns=()):
        self.name = name
        plain_runs = ([straight] if straight else []) + [plain for named in turns for plain, _ in named]
        # What is known of the recording, whatever was run on it.
        self.recording = plain_runs[0] if plain_runs else {}
        self.results = by_case(bench)
        self.in_turn = {}
        for named in turns:
            runs = [by_case(ours) for _, ours in named]
            self.in_turn.update({case: merged([run.get(case, {}) for run in runs])
                                 for case in {case for run in runs for case in run}})
        self.pairs = [(plain["cases"], by_case(ours)) for named in turns for plain, ours in named]
        self.plain_runs = [plain["cases"] for plain in plain_runs]

    def figures(self, case, in_turn=False):
        """Nothing for a case that failed or was not run."""
        return (self.in_turn if in_turn else self.results).get(case, {}).get("figures")

    def why_not(self, case, in_turn=False):
        return (self.in_turn if in_turn else self.results).get(case, {}).get("error", "not measured")

    def plain(self, case, figure, best, beside=None):
        """The median over the turns of the best figure over all numbers of threads that were tried. Only of the turns in
        which our case `beside` was measured, if one is named and there are such."""
        def value(entry):
            return entry[figure]
        return self.plain_where(case, figure, lambda entries: best(entries, key=value), beside)

    def plain_where(self, case, figure, choose, beside=None):
        """The same of the number of threads that is chosen in each turn."""
        runs = [plain for plain, ours in self.pairs if beside in ours] or self.plain_runs
        chosen = [chosen_of(run, case, figure, choose) for run in runs]
        values = [value for value in chosen if value is not None]
        return statistics.median(values) if values else None

    def ratio(self, case, figure, plain_case, choose):
        """The median of a figure's ratios to that of the plain program, of the number of threads that is chosen, each
        within one turn: a machine that is faster in one turn than in the next is no difference between the two."""
        ratios = []
        for plain, ours in self.pairs:
            reference = chosen_of(plain, plain_case, figure, choose)
            figures = ours.get(case, {}).get("figures", {})
            if reference is not None and figure in figures:
                ratios.append(figures[figure] / reference)
        return statistics.median(ratios) if ratios else None

    def plain_ratio(self, case, other, figure, choose):
        """The same of two cases of the plain program."""
        pairs = [(chosen_of(plain, case, figure, choose), chosen_of(plain, other, figure, choose))
                 for plain, _ in self.pairs]
        ratios = [value / reference for value, reference in pairs if None not in (value, reference)]
        return statistics.median(ratios) if ratios else None


def chosen_of(run, case, figure, choose):
    """A figure of one run of the plain program, of the number of threads that is chosen; None where there is none."""
    entries = [entry for entry in run if entry["case"] == case and figure in entry]
    return choose(entries)[figure] if entries else None


def fastest(entries):
    return max(entries, key=lambda entry: entry["picturesPerSecond"])


def row(clip, case, beside, ours, required, verdict):
    return {"clip": clip.name, "case": case, "beside": beside, "ours": ours, "required": required,
            "verdict": verdict}


def verdict_of(condition):
    return OK if condition else MISSED


def why_unread(figures):
    """Why the figures say nothing of what was on show; empty where they do."""
    if figures.get("hasBarCode") != 1:
        return "the clip's bar code could not be read"
    unread = figures.get("unreadPictures", 0)
    return f"the bar code of {unread:.0f} pictures could not be read" if unread > 0 else ""


def judged(clip, case, label, required, judge, in_turn=False):
    """`judge` makes what is beside, ours and whether it is met of the figures; a case without figures is missed,
    unless it says that it was left out, and so is one whose pictures could not be told apart."""
    figures = clip.figures(case, in_turn)
    if figures is None:
        why = clip.why_not(case, in_turn)
        return row(clip, label, "", why, required, APART if why.startswith("left out") else MISSED)
    if why_unread(figures):
        return row(clip, label, "", why_unread(figures), required, MISSED)
    beside, ours, met = judge(figures)
    return row(clip, label, beside, ours, required, verdict_of(met))


def against(reference, ours, ratio, unit, is_met):
    """What is beside, ours with its ratio, and whether it is met; without anything beside it, it is not."""
    if reference is None or ratio is None:
        return "", f"{ours:.1f} {unit}", False
    return f"{reference:.1f} {unit}", f"{ours:.1f} {unit} ({ratio:.2f})", is_met(ratio)


def fast_rows(clip):
    def rate(case, plain_case, share, figures):
        return against(clip.plain(plain_case, "picturesPerSecond", max, beside=case), figures["picturesPerSecond"],
                       clip.ratio(case, "picturesPerSecond", plain_case, fastest), "/s", lambda ratio: ratio >= share)

    def fast(case, label, plain_case, of):
        def judge(figures):
            beside, ours, met = rate(case, plain_case, 0.95, figures)
            return beside, ours, met and figures["rightPercent"] == 100
        return judged(clip, case, label, f"0.95 of the {of}", judge, in_turn=True)

    def quarter(figures):
        beside, ours, met = rate("fast:backward-quarter-group", "backward", 0.35, figures)
        used = figures["peakMiB"] - figures["atBeginMiB"]
        budget = figures["budgetMiB"]
        return (beside, f"{ours}, {used:.0f} MiB of {budget:.0f} + {OVERHEAD_MIB}",
                met and used <= budget + OVERHEAD_MIB and figures["rightPercent"] == 100)

    return [
        fast("fast:forward", "forward, fast", "straight", "ceiling"),
        fast("fast:forward-4-tracks", "forward, fast, 4 tracks", "straight", "ceiling"),
        fast("fast:backward-2-groups", "backward, fast, budget of two groups", "backward", "floor"),
        judged(clip, "fast:backward-quarter-group", "backward, fast, budget of a quarter of a group",
               "0.35 of the floor, within the budget", quarter, in_turn=True),
    ]


def longest_stand_ms(figures):
    return 1.25 * figures["tickMs"] + 10


def percent_of_due_ticks(figures, name):
    """The share of the ticks that were due. Those that the program slept through were shown nothing, so none of
    them is right: the bench leaves them out of its shares."""
    return figures[name] * figures["ticks"] / (figures["ticks"] + figures["sleptThroughTicks"])


def right_percent(figures):
    return percent_of_due_ticks(figures, "rightPercent")


def describe_slept(figures):
    slept = figures["sleptThroughTicks"]
    return f", {slept:.0f} slept through" if slept > 0 else ""


def describe_ticks(figures):
    text = f"{right_percent(figures):.1f} % right, stands {figures['standMs']:.0f} ms"
    if figures["behindTicks"] > 0:
        text += f", {figures['behindTicks']:.0f} ticks behind"
    return text + describe_slept(figures)


def speed_of(case):
    numerator, _, denominator = case.partition(":")[2].partition("/")
    return int(numerator) / int(denominator or 1)


def decodes_per_picture(case, figures):
    """What the ceiling has to allow for each picture shown. Backward, a group that does not fit the budget is decoded in
    parts: one is shown while the next one is made, and each takes a pass from the key frame on."""
    group = figures.get("groupMiB", 0)
    if speed_of(case) > 0 or group <= MOST_USUAL_MIB:
        return 1
    return (group / (MOST_USUAL_MIB / 2) + 1) / 2


def play_rows(clip):
    ceiling = clip.plain("straight", "picturesPerSecond", max)

    def in_time(figures):
        met = (right_percent(figures) == 100 and figures["behindTicks"] == 0 and
               figures["standMs"] <= longest_stand_ms(figures))
        return "", describe_ticks(figures), met

    rows = []
    for case in FORWARD + BACKWARD:
        made = judged(clip, case, f"speed {case[5:]}", "100 % right, no stand above 1.25 ticks + 10 ms", in_time)
        figures = clip.figures(case)
        if ceiling is not None and figures is not None and not why_unread(figures):
            again = decodes_per_picture(case, figures)
            needed = again * abs(speed_of(case)) * 1000 / figures["tickMs"]
            if ceiling < 2 * needed:
                passes = "" if again == 1 else f" ({again:.1f} decodes a picture, as a group does not fit)"
                made["beside"] = f"{ceiling:.0f} /s, less than twice the {needed:.0f} needed{passes}"
                made["verdict"] = APART
        rows.append(made)
    return rows


def high_speed_rows(clip):
    def four(figures):
        met = right_percent(figures) >= 98 and figures["behindTicks"] == 0
        return "", describe_ticks(figures), met

    def sixteen(figures):
        near = percent_of_due_ticks(figures, "nearPercent")
        ours = (f"{figures['behindTicks']:.0f} ticks behind, gap {figures['gapMs']:.0f} ms, "
                f"{figures['newPerSecond']:.1f} new/s, {near:.0f} % near" + describe_slept(figures))
        met = (figures["behindTicks"] == 0 and figures["gapMs"] <= 130 and figures["newPerSecond"] > 12 and
               near >= 50)
        return "", ours, met

    required = "rate held, gap 130 ms, more than 12 new/s, 50 % within 16 pictures"
    return [judged(clip, "play:-4", "speed -4", "98 % right, rate held", four),
            judged(clip, "play:16", "speed 16", required, sixteen),
            judged(clip, "play:-16", "speed -16", required, sixteen)]


def opening_rows(clip):
    floors = [clip.plain(case, "p95Ms", min) for case in ("seek", "seek-skip")]
    floor = None if None in floors else min(floors)

    def opened(figures):
        return "", f"p50 {figures['p50Ms']:.0f}, p95 {figures['p95Ms']:.0f} ms", figures["p95Ms"] <= 200

    opening_ms = (clip.figures("open:forward") or {"p95Ms": 0})["p95Ms"]

    def beyond(made, case):
        """Backward, the first picture may be the last of its group: all of it has to be decoded."""
        figures = clip.figures(case)
        if floor is None or figures is None or why_unread(figures) or case == "open:forward":
            return made
        made["beside"] = f"decoding up to it: p95 {floor:.0f} ms"
        # Opening backward takes the opening as well, and ends at the last picture of a group.
        most = floor + 5 + (0 if case == "open:reverse-start" else opening_ms)
        if made["verdict"] == MISSED and floor > 200 and figures["p95Ms"] <= most:
            made["verdict"] = BEYOND
        return made

    labels = {"open:forward": "first picture after opening",
              "open:backward": "first picture after opening backward",
              "open:reverse-start": "first picture after starting in reverse"}
    return [beyond(judged(clip, case, label, "200 ms", opened), case) for case, label in labels.items()]


def command_rows(clip):
    def next_tick(figures):
        wrong = figures["wrong"] + figures["wrongAfter"]
        ours = f"p50 {figures['p50Ms']:.0f}, p99 {figures['p99Ms']:.0f} ms, {wrong:.0f} wrong"
        return "", ours, figures["p99Ms"] <= figures["tickMs"] and wrong == 0

    labels = {"step:back": "step back", "step:forward": "step forward", "turn": "change of direction",
              "near": "jump inside what is cached"}
    return [judged(clip, case, label, "the next tick (p99), all right afterwards", next_tick)
            for case, label in labels.items()]


def jump_rows(clip):
    floors = [clip.plain("seek", figure, min) for figure in ("p50Ms", "p95Ms")]
    skipping = [clip.plain("seek-skip", figure, min) for figure in ("p50Ms", "p95Ms")]
    beside = "" if None in floors + skipping else (
        f"p50 {floors[0]:.0f}, p95 {floors[1]:.0f} ms; skipping {skipping[0]:.0f}, {skipping[1]:.0f} ms")

    def jump(figures):
        ours = f"p50 {figures['p50Ms']:.0f}, p95 {figures['p95Ms']:.0f} ms, {figures['wrong']:.0f} wrong"
        met = (beside != "" and figures["p50Ms"] <= floors[0] + 5 and figures["p95Ms"] <= floors[1] + 5 and
               figures["wrong"] == 0)
        # What is left out on the way has to pay.
        pays = beside != "" and figures["p50Ms"] < floors[0] and figures["p95Ms"] < floors[1]
        return beside, ours, met and pays

    def drag(figures):
        ours = (f"gap {figures['gapMs']:.0f} ms, stop p95 {figures['p95Ms']:.0f} ms, "
                f"{figures['wrong']:.0f} wrong")
        met = (beside != "" and figures["gapMs"] <= 100 and figures["p95Ms"] <= floors[1] + 20 and
               figures["wrong"] == 0)
        return beside, ours, met

    return [judged(clip, "jump", "random jump", "below the floor, as pictures are skipped", jump, in_turn=True),
            judged(clip, "drag", "dragging", "gap 100 ms, stop the floor + 20 ms", drag, in_turn=True)]


def track_rows(clip):
    def four(figures):
        met = right_percent(figures) == 100 and figures["behindTicks"] == 0
        return "", describe_ticks(figures), met

    def eight(figures):
        # By the pictures that came on show, not by the play head: at speeds up to 1 each lasts a tick.
        held = figures["newPerSecond"] / 8 * figures["tickMs"] / 1000
        said = figures.get("saidSpeed")
        ours = (f"{figures['togetherPercent']:.1f} % together, held {held:.3f}, said " +
                ("nothing" if said is None else f"{said:.3f}") + describe_slept(figures))
        met = (figures["togetherPercent"] == 100 and figures["ticks"] > 1 and said is not None and
               abs(said - held) <= SPEED_TOLERANCE * held)
        return "", ours, met

    rows = []
    for way in ("forward", "backward"):
        rows.append(judged(clip, f"tracks:4-{way}", f"4 tracks {way}", "100 % right on all", four))
        rows.append(judged(clip, f"tracks:8-{way}", f"8 tracks {way}", "all show the same time, speed said within 5 % of that held",
                           eight))
    return rows


def cost_rows(clip):
    pictures = clip.recording.get("pictures", 0)
    own = clip.recording["packetBytes"] / pictures if pictures else None

    def memory(figures):
        most = 2 * figures["groupMiB"] + OVERHEAD_MIB + PROCESS_MIB
        return f"{most:.0f} MiB", f"{figures['peakMiB']:.0f} MiB", figures["peakMiB"] <= most

    in_time = clip.plain_where("in-time", "cpuMsPerPicture", fastest)
    resting_costs = clip.plain_ratio("in-time", "straight", "cpuMsPerPicture", fastest)

    def processor_time(case, share):
        # That of the number of threads that makes the ceiling.
        processor = clip.plain_where("straight", "cpuMsPerPicture", fastest, beside=case)

        def judge(figures):
            beside, ours, met = against(processor, figures["cpuMsPerPicture"],
                                        clip.ratio(case, "cpuMsPerPicture", "straight", fastest), "ms",
                                        lambda ratio: ratio <= share)
            rests = "" if None in (in_time, resting_costs) else f", in real time {in_time:.1f} ms ({resting_costs:.2f})"
            return beside + rests, ours, met

        made = judged(clip, case, f"processor time a picture at {case[5:]}", f"{share} of the ceiling's", judge,
                      in_turn=True)
        # A decoder that rests after each picture takes longer for the next one, in whatever program.
        figures = clip.figures(case, in_turn=True)
        resting = clip.ratio(case, "cpuMsPerPicture", "in-time", fastest)
        if (made["verdict"] == MISSED and figures is not None and not why_unread(figures) and
                None not in (resting, resting_costs)):
            made["ours"] += f", {resting:.2f} of that in real time"
            made["verdict"] = BEYOND if resting <= share < resting_costs else MISSED
        return made

    def bytes_read(figures):
        read = figures["bytesReadPerPicture"]
        return against(own, read, read / own if own else None, "B", lambda ratio: ratio <= 1.1)

    rows = [judged(clip, "play:-1", "memory at -1", f"two groups + {OVERHEAD_MIB} MiB + {PROCESS_MIB} MiB for the process",
                   memory, in_turn=True)]
    for case, share in (("play:1", 1.1), ("play:-1", 1.3)):
        rows.append(processor_time(case, share))
        rows.append(judged(clip, case, f"bytes read a picture at {case[5:]}", "1.1 of the recording's",
                           bytes_read, in_turn=True))
    return rows


def make_rows(first, others):
    rows = []
    for make in (fast_rows, play_rows, high_speed_rows, opening_rows, command_rows, jump_rows, track_rows,
                 cost_rows):
        rows += make(first)
    for clip in others:
        rows += play_rows(clip)
    return rows


def table(rows):
    columns = ("clip", "case", "beside", "ours", "required", "verdict")
    titles = ("clip", "case", "floor or ceiling", "ours", "required", "")
    widths = [max(len(title), *(len(entry[column]) for entry in rows)) if rows else len(title)
              for column, title in zip(columns, titles)]

    def line(cells):
        return "| " + " | ".join(cell.ljust(width) for cell, width in zip(cells, widths)) + " |"

    lines = [line(titles), "|" + "|".join("-" * (width + 2) for width in widths) + "|"]
    return "\n".join(lines + [line([entry[column] for column in columns]) for entry in rows]) + "\n"


def read_json(file):
    return json.loads(file.read_text()) if file.exists() else None


def read_clip(directory, name):
    turns = {}
    for file in sorted(directory.glob(f"*-*-straight-{name}.json")):
        pair = (read_json(file), read_json(directory / file.name.replace("-straight-", "-bench-", 1)))
        turns.setdefault(file.name.partition("-")[0], []).append(pair)
    return Clip(name, read_json(directory / f"straight-{name}.json"), read_json(directory / f"bench-{name}.json"),
                list(turns.values()))


def clips_in(directory, first):
    names = sorted(file.name[len("straight-"):-len(".json")] for file in directory.glob("straight-*.json"))
    return [read_clip(directory, name) for name in names if name != first]


def main(arguments):
    parser = argparse.ArgumentParser(description=__doc__.split("\n", 1)[0])
    parser.add_argument("--directory", type=pathlib.Path, required=True)
    parser.add_argument("--first", required=True, help="the clip that is measured in every case")
    parser.add_argument("--no-verdict", action="store_true", help="judge nothing")
    options = parser.parse_args(arguments)
    rows = make_rows(read_clip(options.directory, options.first), clips_in(options.directory, options.first))
    if options.no_verdict:
        for entry in rows:
            entry["verdict"] = APART
    text = table(rows)
    (options.directory / "media-report.json").write_text(json.dumps(rows, indent=2) + "\n")
    (options.directory / "media-report.md").write_text(text)
    print(text, end="")
    return 1 if any(entry["verdict"] == MISSED for entry in rows) else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
