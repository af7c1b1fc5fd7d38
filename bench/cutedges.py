"""Level at the cuts of exported sound, recognised word edges against refined ones.

usage: cutedges.py BIN_DIR [--seeds N]  (run through bench/cut-edges.sh)
"""
import array, json, math, os, random, re, subprocess, sys, tempfile, time, wave

TEXT = (
    "Good morning and welcome to the second lesson. Today we look at how an interview is "
    "edited. First we listen to the whole recording once, without stopping. Then we mark "
    "the places where the speaker repeats a thought, or pauses for a long time. Most "
    "editors cut those places first, because they are easy to find. After that we read the "
    "transcript and remove the sentences that do not help the story. Remember that every "
    "cut changes the rhythm of speech. A cut in the middle of a word is heard at once, so "
    "we always cut in the quiet between words. At the end we listen again, from the start, "
    "and fix anything that sounds hurried. Thank you for listening, and see you next week."
)


def run(*args, **kw):
    return subprocess.run(args, check=True, capture_output=True, text=True, **kw)


def edit_cuts(words, deleted):
    """Where the edited result joins two words that a deletion put side by side: the
    same joins in both runs, so that the levels compare like with like. Pauses are off,
    so a word plays right after the one before it."""
    times, at, previous_kept = [], 0.0, None
    for index, word in enumerate(words):
        if index in deleted:
            continue
        if previous_kept is not None and previous_kept != index - 1:
            times.append(at)
        at += word["mediaEnd"] - word["mediaStart"]
        previous_kept = index
    return times


def level_db(path, times):
    with wave.open(path) as w:
        rate, channels = w.getframerate(), w.getnchannels()
        samples = array.array("h", w.readframes(w.getnframes()))
    half = int(0.005 * rate)
    levels = []
    for t in times:
        centre = int(round(t * rate))
        window = samples[max(0, centre - half) * channels:(centre + half) * channels]
        if not window:
            continue
        power = sum(s * s for s in window) / len(window) / 32768.0 ** 2
        levels.append(10 * math.log10(max(power, 1e-10)))
    return levels


def main():
    bin_dir = os.path.abspath(sys.argv[1])
    seeds = int(sys.argv[sys.argv.index("--seeds") + 1]) if "--seeds" in sys.argv else 8
    work = tempfile.mkdtemp(prefix="kavel-cutedges-")
    env = dict(os.environ, HOME=work, KAVEL_PROJECTS_DIR=f"{work}/projects",
               SDL_AUDIODRIVER="dummy")
    os.makedirs(f"{work}/projects")
    run("flite", "-t", TEXT, "-o", f"{work}/speech.wav")
    run("ffmpeg", "-loglevel", "error", "-i", f"{work}/speech.wav", "-ar", "44100",
        f"{work}/lesson.wav")
    run(f"{bin_dir}/kavel-server", "add-user", "--db", f"{work}/kv.db", "--email",
        "bench@kavel.local", "--password", "bench-secret-1")
    log = open(f"{work}/server.log", "w")
    server = subprocess.Popen([f"{bin_dir}/kavel-server", "serve", "--port", "0", "--db",
                               f"{work}/kv.db"], stdout=log, stderr=subprocess.STDOUT)
    try:
        port = None
        for _ in range(100):
            m = re.search(r"127\.0\.0\.1:(\d+)", open(f"{work}/server.log").read())
            if m:
                port = m.group(1)
                break
            time.sleep(0.1)
        bundles = {}
        for name, extra in (("recognised", ["--no-refine"]), ("refined", [])):
            bundles[name] = run(f"{bin_dir}/kavel-cli", "import", f"{work}/lesson.wav",
                                "--server", f"http://127.0.0.1:{port}/api", "--email",
                                "bench@kavel.local", "--password", "bench-secret-1", *extra,
                                env=env).stdout.strip()
    finally:
        server.terminate()
        server.wait()

    timelines = {n: json.load(open(f"{b}/timeline.json")) for n, b in bundles.items()}
    words = lambda t: [w for p in t["paragraphs"] for w in p["wordBlocks"]]
    counts = {n: len(words(t)) for n, t in timelines.items()}
    assert len(set(counts.values())) == 1, f"different transcripts: {counts}"
    moved = sum(abs(a["mediaStart"] - b["mediaStart"]) > 1e-6
                + (abs(a["mediaEnd"] - b["mediaEnd"]) > 1e-6)
                for a, b in zip(words(timelines["recognised"]), words(timelines["refined"])))
    print(f"{counts['refined']} words, {moved} of {2 * counts['refined']} edges moved")

    results = {n: [] for n in bundles}
    for seed in range(seeds):
        chosen = random.Random(seed).sample(range(counts["refined"]), counts["refined"] // 4)
        for name, bundle in bundles.items():
            timeline = json.loads(json.dumps(timelines[name]))
            index = 0
            for paragraph in timeline["paragraphs"]:
                kept = []
                for word in paragraph["wordBlocks"]:
                    if index not in chosen:
                        kept.append(word)
                    index += 1
                paragraph["wordBlocks"] = kept
            timeline["paragraphs"] = [p for p in timeline["paragraphs"] if p["wordBlocks"]]
            json.dump(timeline, open(f"{bundle}/timeline.json", "w"))
            out = f"{work}/out-{name}-{seed}"
            run(f"{bin_dir}/kavel-cli", "export", bundle, "--out", out, "--audio", "wav",
                "--title", "cut", env=env)
            cut_times = edit_cuts(words(timelines[name]), set(chosen))
            results[name] += level_db(f"{out}/cut.wav", cut_times)
    for name, levels in results.items():
        power = sum(10 ** (l / 10) for l in levels) / len(levels)
        print(f"{name:>10}: {len(levels)} cuts, mean level {sum(levels) / len(levels):6.1f} dB, "
              f"level of the mean power {10 * math.log10(power):6.1f} dB")
    subprocess.run(["rm", "-rf", work])


if __name__ == "__main__":
    main()
