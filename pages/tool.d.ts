// What the tool writes for the pages. A number that is not finite is null. Times in nanoseconds are
// texts where they have to be exact: a script's numbers hold 53 bits.

export type QuantityName = "valence" | "attention" | "ease";
export type MovedName = "valence" | "attention";
export type Mood = -1 | 0 | 1;
export type Reading = { value: number | null; confidence: number | null };
export type Reason = { name: string; label: string; meaning: string };

// The lines of /states.

export type Force = {
  quantity: MovedName | `${MovedName}_confidence`;
  reason: string;
  target: number | null;
  strength: number | null;
  before: number | null;
  after: number | null;
};
export type StateLine = Record<QuantityName, Reading> & {
  time: number;
  person: number;
  mood: Mood;
  cycle_mood: { value: Mood; confidence: number | null };
  forces?: Force[];
};
export type ScopeLine = {
  time: number;
  person: number;
  scope: string;
  label: ScopeLabel;
  samples: number;
};
export type RoomLine = { time: number; agitation: number | null; calm: number | null };
export type RemovedLine = { time: number; person: number; removed: true };
export type Status = {
  status: "ok";
  version: string;
  started: number;
  time: number;
  uptime: number;
  people: number;
  events: number;
  bad_lines: number;
  lost_messages: number;
  pages: number;
  recording: string | null;
  recording_failure: string | null;
};
export type BadLine = { source: string; line: number; error: string };
export type Line =
  | StateLine
  | ScopeLine
  | RoomLine
  | RemovedLine
  | { reasons: Reason[] }
  | { status: Status }
  | { picture: "begins" | "complete" }
  | { bad_line: BadLine }
  | { missed: number }
  | { error: string };

/** What /events answers. */
export type Answer =
  | { people: { first: number; count: number; key: string } }
  | { error: string; line: number };

/** What /health answers. */
export type Health = Status & {
  refused_connections: number;
  dropped_output: number;
  connections: {
    name: string;
    since: number;
    lines: number;
    bad_lines: number;
    dropped: number;
  }[];
};

// The report.

export type ScopeLabel = "positive" | "neutral" | "negative" | "unknown" | "error";

/** A column of numbers, as decoded() reads it. */
export type Column = string;

export type PersonData = Record<QuantityName | `${QuantityName}_confidence`, Column> & {
  person: number;
  time: Column;
  begins: Column;
  known: Record<QuantityName, Column>;
  mood: Column;
  moves: Record<MovedName, { reason: string; rows: Column }[]>;
  tooShort: boolean;
  changes: { quantity: MovedName; first: number; last: number; reason: string }[];
  scopes: ScopeData[];
};
export type ScopeData = {
  scope: string;
  from: string;
  to: string;
  label: ScopeLabel | "";
  samples: number;
};
export type RecordingData = {
  recording: string;
  source: string;
  failure: string;
  warnings: string[];
  reasons: Reason[];
  zero: string;
  start: string;
  end: string;
  persons: PersonData[];
  room: { time: Column; agitation: Column };
  mattered: MatteredRow[];
};

/** A row of `explain --without`. */
export type MatteredRow =
  Record<`${QuantityName | `${QuantityName}_confidence`}_${"mean_change" | "change"}`, number> &
  Record<`${QuantityName | `${QuantityName}_confidence`}_change_at`, number | null> & {
    person: number;
    without: string;
    cycles: number;
    other_mood: number;
    other_attentive: number;
    changes_nothing: boolean;
    reason: string;
  };

/** A row of `replay --summary`. */
export type SummaryRow =
  Record<`${QuantityName}_${"mean" | "deviation" | "confidence"}`, number | null> &
  Record<`${QuantityName}_coverage`, number> &
  Record<`${MovedName}_change` | `${MovedName}_change_at`, number | null> &
  Record<"positive" | "neutral" | "negative" | "attentive", number | null> &
  Record<`${ScopeLabel}_scopes`, number> & {
    person: number;
    first: number;
    last: number;
    cycles: number;
    unseen_cycles: number;
    visits: number;
    tooShort: boolean;
  };
export type OverviewRecording = {
  title: string;
  failure: string;
  warnings: number;
  zero: string;
  from: number;
  to: number;
  persons: SummaryRow[];
};
export type OverviewData = { page: string; scope?: string; recordings: OverviewRecording[] };
