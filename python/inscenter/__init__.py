"""The catalogue of tradable instruments: days from files, centers, stores, and all of them as columns.

    import inscenter

    center = inscenter.ServerCenter.open("day")
    center["SH600000"].name
    center.frame(market="SHO")
"""

from ._native import (
    Bond as Bond,
    Catalogue as Catalogue,
    Center as Center,
    Change as Change,
    ClientCenter as ClientCenter,
    Counterparty as Counterparty,
    Day as Day,
    Etf as Etf,
    EtfComponent as EtfComponent,
    Instrument as Instrument,
    Issuance as Issuance,
    IssuancePrice as IssuancePrice,
    Issue as Issue,
    OtcPlan as OtcPlan,
    Record as Record,
    ServerCenter as ServerCenter,
    SnapshotWarning as SnapshotWarning,
    Statistics as Statistics,
    Store as Store,
    StoreError as StoreError,
    Subscription as Subscription,
    Table as Table,
    TenderBond as TenderBond,
    TraderType as TraderType,
    UnreadableError as UnreadableError,
    View as View,
    __version__ as __version__,
    changed_fields as changed_fields,
    hash_key as hash_key,
    load_market_rules as load_market_rules,
    reset_market_rules as reset_market_rules,
    set_today as set_today,
    today as today,
)
from ._frames import diff as diff, frame as frame
from ._generate import generate as generate
from ._sources import table as table
