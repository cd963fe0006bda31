"""From a file of OpenFace to figures: how one person seemed, when it changed, and why.

The cells, from one "# %%" to the next, run one by one in an editor that knows them, such as Jupyter's;
the whole runs with the file as its argument:

    python3 face_analysis.py webcam.csv
"""

# %% What is in the file?
import pathlib
import sys

import numpy

import zorvel

faces = pathlib.Path(sys.argv[1])
recording = faces.with_suffix(".jsonl").name
facts = zorvel.import_openface(faces, recording)
print(f"{facts.frames} frames in {facts.seconds:.1f} s, {facts.observations} with a face")
for field in facts.fields:
    print(f"  {field.name}: {field.observations} {field.obstacle}")

# %% How did the person seem?
results = zorvel.replay(recording, forces=True)
results.plot().savefig(faces.with_suffix(".png").name, dpi=150)
for row in zorvel.summarize(recording):
    print(f"person {row['person']}: valence {row['valence_mean']:.2f} ± {row['valence_deviation']:.2f}, "
          f"attention {row['attention_mean']:.2f}, {100 * row['attentive']:.0f} % attentive")

# %% When did the valence change most within a second, and why?
for row in zorvel.summarize(recording):
    if numpy.isnan(row["valence_change_at"]):
        continue
    end = row["valence_change_at"]
    print(f"person {row['person']}: {row['valence_change']:+.2f} until {end:.2f} s")
    why = zorvel.explain(recording, person=row["person"], begin=max(0.0, end - 1.0), end=end)
    for reason in why[row["person"]]["valence"]["reasons"]:
        print(f"  {reason['reason']}: up {reason['up']:.2f}, down {reason['down']:.2f}")

# %% What pulled the attention, over all?
assert results.forces is not None
pulls = results.forces.to_pandas().query("quantity == 'attention'")
pulls = pulls.assign(moved=pulls["after"] - pulls["before"])
print(pulls.groupby("reason")["moved"].agg(["count", "sum"]).round(2))
